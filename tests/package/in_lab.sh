#!/bin/bash
# Tries the built package on a freshly installed Debian with systemd: one that has
# just what the package depends on, and what the lab needs to send traffic. iptables is
# iptables-legacy there; boot_in_lab.sh has the other one.
#
# Call: tests/package/in_lab.sh PACKAGE-FOLDER
set -euo pipefail
folder=$(realpath "${1:?Call: tests/package/in_lab.sh PACKAGE-FOLDER}")
package=$(ls "$folder"/quenby_*.deb)
cd "$(dirname "$0")/../.."

# Makes a newer package, whose unit and firewall script differ, and prints its path. The guest
# sees what is in this tree.
newer_package() {
  local files=$folder/newer
  rm -rf "$files"
  dpkg-deb -R "$package" "$files"
  sed -i 's/^Version: .*/&+1/' "$files/DEBIAN/control"
  sed -i 's/^Description=.*/Description=The newer one/' "$files"/*/systemd/system/quenby.service
  echo "# the newer one" | tee -a "$files/usr/libexec/quenby/kavo-hal" \
    >>"$files/usr/libexec/quenby/firewall.init"
  dpkg-deb --root-owner-group -Znone -b "$files" "$files.deb" >/dev/null
  rm -r "$files"
  echo "$files.deb"
}

# Names alone, with commas.
depends=$(dpkg-deb -f "$package" Depends | sed 's/([^)]*)//g; s/|[^,]*//g; s/ //g')
# What contrib/ansible's role needs of a router, and what plays it.
exec scripts/lab --user-mode --memory 3072 --debian "$depends,ansible-core,python3-apt" --timeout 1200 \
  tests/package/package_test.sh "$package" "$(newer_package)"
