#!/bin/bash
# Builds the program as a newcomer does, without presets and without GoogleTest: in
# every build type of CMake's, Release with clang++ and a Boost that has no library of
# Boost.System. Each program must run and keep its assertions. Every file includes
# what it needs, though a layer's are compiled together. The tests themselves are
# compiled by the presets dev and asan alone. A warning ends the build of a preset and
# no other.
#
# Call: tests/build/builds_test.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

scratch=$(mktemp -d "${TMPDIR:-/tmp}/quenby-builds.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
unset CXXFLAGS CMAKE_BUILD_TYPE CMAKE_GENERATOR
version=$(sed -n 's/^project(quenby VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)

# Runs the command and shows what it says only when it fails.
quietly() {
  "$@" >"$scratch/log" 2>&1 || { tail -n 30 "$scratch/log"; return 1; }
}

# `cmake -B FOLDER && cmake --build FOLDER`. Call: plain FOLDER [OPTION...]
plain() {
  local folder=$1
  shift
  quietly cmake -B "$folder" -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON "$@" &&
    quietly cmake --build "$folder" --parallel 2
}

# The compiler's command for a file of the engine, for SOURCE and PROGRAM instead.
# Call: engine_command FOLDER SOURCE PROGRAM
engine_command() {
  python3 - "$@" <<'END'
import json, shlex, sys
folder, source, program = sys.argv[1:]
with open(folder + "/compile_commands.json", encoding="utf-8") as commands:
    words = next(shlex.split(entry["command"]) for entry in json.load(commands)
                 if "/quenby_tc.dir/" in entry["command"])
words[words.index("-o"):] = [source, "-o", program]
print(shlex.join(words))
END
}

# What a program of this build says and returns when an assertion does not hold.
assertion() {
  local status=0 command
  cat >"$scratch/broken.cpp" <<'END'
#include "tc/assert.h"
#include <cstring>
int main(int count, char**) {
  TC_ASSERT(count > 1);
  assert(std::strlen("on") == 2);
}
END
  command=$(engine_command "$1" "$scratch/broken.cpp" "$scratch/broken")
  quietly bash -c "$command"
  # The shell's own word on it goes elsewhere.
  (ulimit -c 0; "$scratch/broken" 2>&1) 2>/dev/null || status=$?
  echo "status $status"
}

# Call: builds NAME [OPTION...]
builds() {
  local name=$1 folder=$scratch/$1
  shift
  holds "$name: build" plain "$folder" "$@"
  expect "$name: the program runs" "Error: missing argument" "$("$folder/quenby" 2>&1 || true)"
  expect "$name: so does the other one" "quenbyctl $version" "$("$folder/quenbyctl" --version)"
  expect "$name: assertions are on" "broken: kavo-tc-htb:4: main: Assertion \`count > 1' failed.
status 134" "$(assertion "$folder")"
  rm -rf "$folder"
}

# Makes a Boost that has the library of Boost.Filesystem and no other.
newer_boost() {
  mkdir "$scratch/boost"
  cat >"$scratch/boost/BoostConfigVersion.cmake" <<'END'
set(PACKAGE_VERSION 1.90.0)
set(PACKAGE_VERSION_COMPATIBLE TRUE)
END
  cat >"$scratch/boost/BoostConfig.cmake" <<'END'
file(TOUCH ${CMAKE_CURRENT_LIST_DIR}/taken)
foreach(component IN LISTS Boost_FIND_COMPONENTS)
  set(Boost_${component}_FOUND FALSE)
  if(component STREQUAL filesystem)
    set(Boost_filesystem_FOUND TRUE)
    if(NOT TARGET Boost::filesystem)
      add_library(Boost::filesystem INTERFACE IMPORTED)
      set_target_properties(Boost::filesystem PROPERTIES INTERFACE_LINK_LIBRARIES boost_filesystem)
    endif()
  elseif(Boost_FIND_REQUIRED_${component})
    message(FATAL_ERROR "this Boost has no ${component}")
  endif()
endforeach()
END
}

test_newer_boost() {
  newer_boost
  mkdir "$scratch/needy"
  printf '%s\n' 'project(needy LANGUAGES CXX)' \
    'find_package(Boost REQUIRED COMPONENTS filesystem system)' >"$scratch/needy/CMakeLists.txt"
  fails "there is none for who needs it" cmake -S "$scratch/needy" -B "$scratch/needy/build" \
    -DBoost_DIR="$scratch/boost" >/dev/null 2>&1
  rm "$scratch/boost/taken"
  builds Release -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=clang++-14 \
    -DBoost_DIR="$scratch/boost"
  holds "that Boost was taken" test -e "$scratch/boost/taken"
}

# Every record of the model has gaps, so this warning is certain.
padded_model() {
  local folder=$scratch/padded
  quietly cmake "$@" -B "$folder" -DCMAKE_CXX_FLAGS=-Wpadded -DQUENBY_TESTS=OFF &&
    cmake --build "$folder" --target quenby_model >"$scratch/log" 2>&1
}

test_warnings() {
  holds "a warning does not end a plain build" padded_model
  holds "the warning was there" grep -q 'Wpadded' "$scratch/log"
  rm -rf "$scratch/padded"
  fails "a warning ends the build of a preset" padded_model --preset release
  holds "the warning was the reason" grep -q 'Werror=padded' "$scratch/log"
}

# Compiles each file by itself, without making anything.
single_files() {
  quietly cmake -B "$scratch/single" -DCMAKE_UNITY_BUILD=OFF -DQUENBY_TESTS=OFF &&
    python3 - "$scratch/single" <<'END'
import concurrent.futures, json, pathlib, shlex, subprocess, sys
folder = sys.argv[1]

def check(entry):
    words = shlex.split(entry["command"])
    at = words.index("-o")
    words[at:at + 2] = ["-fsyntax-only", "-Werror"]
    return subprocess.run(words, cwd=entry["directory"]).returncode == 0

entries = json.loads(pathlib.Path(folder, "compile_commands.json").read_text())
assert {"main.cpp", "handles.cpp"} <= {pathlib.Path(entry["file"]).name for entry in entries}
with concurrent.futures.ThreadPoolExecutor(2) as pool:
    sys.exit(not all(list(pool.map(check, entries))))
END
}

builds plain
for type in Debug RelWithDebInfo MinSizeRel; do builds "$type" -DCMAKE_BUILD_TYPE="$type"; done
test_newer_boost
holds "every file includes what it needs" single_files
test_warnings
finish
