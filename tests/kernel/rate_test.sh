#!/bin/bash
# TCP of two subscribers at once, in both directions, reaches the speeds of their
# tariffs and does not exceed them.
#
# Call: scripts/lab tests/kernel/rate_test.sh PROGRAM
set -euo pipefail
program=$(realpath "${1:?Call: scripts/lab tests/kernel/rate_test.sh PROGRAM}")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
network_require_lab

results=$(mktemp -d)

write_configuration() {
  mkdir -p /config/tc
  printf '%s\n' '[global]' wan=eth1 download_speed=50000 upload_speed=50000 enabled=true \
    >/config/tc/tc_global.ini
  printf '%s\n' \
    '[fast]' id=4 ip=10.0.0.4 download_speed=10000 upload_speed=10000 queuing_discipline=fq_codel \
    '[slow]' id=5 ip=10.0.0.5 download_speed=3000 upload_speed=3000 queuing_discipline=sfq \
    >/config/tc/tc_tariff.ini
}

# A class starts with 240 ms of traffic at hand, so the first seconds are left out.
# Call: measure DIRECTION ADDRESS PORT
measure() { network_rate "$1" "$2" 6 3 "$3" >"$results/$1-$2"; }

# Between 85 % and 103 % of a speed in Mbit/s. Headers make 94 to 97 % of it.
in_band() { awk -v got="$1" -v speed="$2" 'BEGIN { exit !(got >= 0.85 * speed && got <= 1.03 * speed) }'; }

# One direction, both subscribers at the same time.
test_direction() {
  local direction=$1 pids=() pid address speed got
  measure "$direction" 10.0.0.4 5201 &
  pids+=("$!")
  measure "$direction" 10.0.0.5 5202 &
  pids+=("$!")
  for pid in "${pids[@]}"; do
    holds "$direction: iperf3 ran" wait "$pid"
  done
  while read -r address speed; do
    got=$(cat "$results/$direction-$address")
    holds "$direction $address: $got of $speed Mbit/s" in_band "$got" "$speed"
  done <<<$'10.0.0.4 10\n10.0.0.5 3'
}

network_up
platform_install
network_add_subscribers 10.0.0.4 10.0.0.5
sudo /opt/ostrea/sbin/firewall.init start opt-qos
write_configuration
holds "--load" "$program" --load
network_iperf_start 5201 5202
test_direction download
test_direction upload
finish
