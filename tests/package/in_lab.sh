#!/bin/bash
# Tries the built package on a freshly installed Debian with systemd: one that has
# just what the package depends on, and what the lab needs to send traffic.
#
# Call: tests/package/in_lab.sh PACKAGE-FOLDER
set -euo pipefail
package=$(ls "${1:?Call: tests/package/in_lab.sh PACKAGE-FOLDER}"/quenby_*.deb)
cd "$(dirname "$0")/../.."

# Names alone, with commas.
depends=$(dpkg-deb -f "$package" Depends | sed 's/([^)]*)//g; s/|[^,]*//g; s/ //g')
exec scripts/lab --debian "$depends" --cpus 1 --timeout 1200 \
  tests/package/package_test.sh "$package"
