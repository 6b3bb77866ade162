#!/bin/bash
# What debian/rules does on other systems and with other options, without a build.
#
# Call: tests/package/rules_test.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "${1:?Call: tests/package/rules_test.sh BUILD-FOLDER}")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
unset DEB_BUILD_OPTIONS DEB_BUILD_PROFILES

# The commands of a step, which it does not run. Call: commands STEP [VARIABLE=VALUE...]
commands() { env "${@:2}" make -n -f debian/rules "$1"; }
# The value of a variable of the rules.
value() { env "${@:2}" make -s -f debian/rules --eval "show: ; @echo '\$($1)'" show; }
tested() { grep -c 'ctest .*-L unit' <(commands override_dh_auto_test "$@") || true; }
configured() { grep -o 'QUENBY_TESTS=[^ ]*' <(commands override_dh_auto_configure "$@"); }

test_checks() {
  expect "unit tests are built" QUENBY_TESTS=ON "$(configured)"
  expect "and run" 1 "$(tested)"
  local name options
  for options in nocheck "parallel=2 nocheck" "nocheck noautodbgsym"; do
    for name in DEB_BUILD_OPTIONS DEB_BUILD_PROFILES; do
      expect "$name=$options: not built" QUENBY_TESTS=OFF "$(configured "$name=$options")"
      expect "$name=$options: not run" 0 "$(tested "$name=$options")"
    done
  done
  expect "another option: run" 1 "$(tested DEB_BUILD_OPTIONS="nochecks parallel=7")"
  holds "as many at once as wanted" grep -q -- '--parallel 7' \
    <(commands override_dh_auto_test DEB_BUILD_OPTIONS="nochecks parallel=7")
}

# The tests that are left out exist, and most are not.
test_left_out() {
  local all left
  all=$(ctest --test-dir "$build" -N -L unit | grep -c ' Test *#')
  left=$(ctest --test-dir "$build" -N -L unit -E "$(value MOUNTING)" | grep -c ' Test *#')
  holds "unit tests: $left of $all" test "$left" -lt "$all" -a "$left" -gt $((all * 8 / 10))
  expect "those that mount are left out" 0 "$(ctest --test-dir "$build" -N -L unit \
    -E "$(value MOUNTING)" | grep -cE 'stored_files_test|IfbSetup|kavo_hal' || true)"
}

# As on Debian 13.
test_units() {
  expect "units of this system" "$(pkg-config --variable=systemdsystemunitdir systemd)" \
    "$(value UNITS)"
  printf '#!/bin/sh\necho /usr/lib/systemd/system\n' >"$scratch/pkg-config"
  chmod 755 "$scratch/pkg-config"
  expect "units of a newer one" /usr/lib/systemd/system "$(value UNITS PATH="$scratch:$PATH")"
}

test_checks
test_left_out
test_units
finish
