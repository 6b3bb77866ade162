# Steps in the package's life that a router takes with either back end of iptables,
# for the tests of the package.
#
# Call: source tests/package/steps.sh (in the top folder, after tests/kernel/checks.sh)
# shellcheck shell=bash

# Chains, rules and sets, without counters and their order.
firewall() {
  local table
  for table in raw mangle filter; do
    echo "# $table"
    iptables -w -t "$table" -S
  done
  ipset -n list
}

# No device has a tree, whatever its name.
unshaped() { ! grep -q '^qdisc htb' <(tc qdisc show) && [ ! -e /sys/class/net/ifb_ingr ]; }

state_of() { systemctl show --property "$1" --value "$2"; }

# What the export's unit writes of CLASSES classes. Call: test_numbers CLASSES
test_numbers() {
  local file=/var/lib/prometheus/node-exporter/quenby.prom
  expect "numbers are for those who want them" disabled \
    "$(systemctl is-enabled quenby-export.timer)"
  systemctl start quenby-export.service
  expect "nothing is exported without a node exporter" no \
    "$(state_of ConditionResult quenby-export.service)"
  mkdir -p "${file%/*}"
  systemctl start quenby-export.service
  expect "classes in the numbers" "$1" \
    "$(grep -cE '^quenby_(line|tariff)_ceiling_bytes_per_second[{]' "$file")"
  expect "differences from the files" "quenby_differences 0" "$(grep '^quenby_differences' "$file")"
  expect "the node exporter may read them" "644 root root" "$(stat -c '%a %U %G' "$file")"
  rm -r /var/lib/prometheus
}

# What autopkgtest runs. It begins with an empty router, and its line stays for the
# shaping that a purge has to take down.
test_debian() {
  local status=0
  holds "systemctl stop" systemctl stop quenby.service
  rm /config/tc/*.ini
  debian/tests/shapes 2>&1 || status=$?
  expect "debian/tests/shapes" 0 "$status"
}

# Call: test_purge FIREWALL-BEFORE-THE-INSTALLATION
test_purge() {
  local files file
  files=$(dpkg -L quenby)
  holds "purge" dpkg -P quenby
  holds "nothing is shaped" unshaped
  expect "chains and sets as before the installation" "$1" "$(firewall)"
  fails "/config is gone" test -e /config
  fails "/opt/ostrea is gone" test -e /opt/ostrea
  fails "the hardware tool is gone" test -e /usr/sbin/kavo-hal
  fails "the lock is gone" test -e /run/quenby.lock
  while read -r file; do
    [ -d "$file" ] || [ ! -e "$file" ] || expect "left over" "" "$file"
  done <<<"$files"
  expect "no unit is left" "" "$(systemctl list-unit-files --no-legend 'quenby*')"
}
