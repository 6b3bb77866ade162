#!/bin/bash
# Tries the built package on a router that boots with it: cards instead of veth, auditing on, a host
# name that nobody knows.
#
# Call: tests/package/boot_in_lab.sh PACKAGE-FOLDER
set -euo pipefail
package=$(realpath "${1:?Call: tests/package/boot_in_lab.sh PACKAGE-FOLDER}"/quenby_*.deb)
cd "$(dirname "$0")/../.."

# Names alone, with commas.
depends=$(dpkg-deb -f "$package" Depends | sed 's/([^)]*)//g; s/|[^,]*//g; s/ //g')
exec scripts/lab --debian "$depends" --cpus 1 --timeout 1500 --audit --cable virtio-net-pci \
  --first "tests/package/boot_set_up.sh $(printf %q "$package")" tests/package/boot_test.sh
