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
# shellcheck source=tests/kernel/rates.sh
source tests/kernel/rates.sh

write_configuration() {
  mkdir -p /config/tc
  printf '%s\n' '[global]' wan=eth1 download_speed=50000 upload_speed=50000 enabled=true \
    >/config/tc/tc_global.ini
  printf '%s\n' \
    '[fast]' id=4 ip=10.0.0.4 download_speed=10000 upload_speed=10000 queuing_discipline=fq_codel \
    '[slow]' id=5 ip=10.0.0.5 download_speed=3000 upload_speed=3000 queuing_discipline=sfq \
    >/config/tc/tc_tariff.ini
}

network_up
platform_install
network_add_subscribers 10.0.0.4 10.0.0.5
sudo /opt/ostrea/sbin/firewall.init start opt-qos
write_configuration
holds "--load" "$program" --load
network_iperf_start 5201 5202
rates_hold "download 10.0.0.4 10" "download 10.0.0.5 3"
rates_hold "upload 10.0.0.4 10" "upload 10.0.0.5 3"
finish
