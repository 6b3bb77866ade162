# Building one of the presets of CMakePresets.json, for the other scripts of this
# tree.
#
# Call: source scripts/build.sh; build_preset release (in the top folder)
# shellcheck shell=bash

# Builds PRESET into build/PRESET; what the build says is shown only when it fails.
build_preset() {
  local log=build/$1.log
  echo "Building $1"
  mkdir -p build
  if ! { cmake --preset "$1" && cmake --build --preset "$1"; } >"$log" 2>&1; then
    cat "$log" >&2
    echo "Error: the build of $1 failed" >&2
    return 1
  fi
}
