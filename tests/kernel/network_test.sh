#!/bin/bash
# Checks of the lab's miniature network and its IMQ stand-in.
#
# Call: scripts/lab tests/kernel/network_test.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
network_require_lab

at_least() { awk -v a="$1" -v b="$2" 'BEGIN { exit !(a >= b) }'; }
ping_up() { in_lan ping -q -c 1 -W 2 -I "$1" "$NETWORK_INET_ADDRESS" >/dev/null; }
ping_down() { in_inet ping -q -c 1 -W 2 "$1" >/dev/null; }

# A counter of a device, as rx_packets or tx_bytes.
counter() { cat "/sys/class/net/$1/statistics/$2"; }

test_addresses() {
  local address thousands=()
  network_add_subscribers 10.0.15.255 10.0.16.0 192.0.2.0/24 10.255.255.255
  for address in 10.0.15.255 10.0.16.0 192.0.2.77 10.255.255.255; do
    holds "upload from $address" ping_up "$address"
    holds "download to $address" ping_down "$address"
  done
  mapfile -t thousands < <(printf '10.7.%s\n' {0..19}.{0..249})
  network_add_subscribers "${thousands[@]}"
  holds "the last of them is reached" ping_down 10.7.19.249
  fails "an address of nobody is not" ping_down 10.8.0.1
}

test_rates() {
  local up down
  network_iperf_start 5201
  up=$(network_rate upload 10.0.16.0)
  down=$(network_rate download 10.0.16.0)
  # How much passes depends on what else the machine does; a Mbit/s always does.
  holds "TCP upload without shaping ($up Mbit/s)" at_least "$up" 1
  holds "TCP download without shaping ($down Mbit/s)" at_least "$down" 1
}

# A queue on one direction lets through what it is set to, in single frames: a
# device counts a merged packet as one, however long, so merged ones show in the
# mean length. A full frame has 1514 bytes.
test_frames() {
  local down bytes packets
  tc qdisc add dev "$NETWORK_LAN" root handle 1: htb default 2
  tc class add dev "$NETWORK_LAN" parent 1: classid 1:2 htb rate 10mbit burst 32k
  bytes=$(counter "$NETWORK_LAN" tx_bytes)
  packets=$(counter "$NETWORK_LAN" tx_packets)
  down=$(network_rate download 10.0.16.0 5 1)
  bytes=$(($(counter "$NETWORK_LAN" tx_bytes) - bytes))
  packets=$(($(counter "$NETWORK_LAN" tx_packets) - packets))
  holds "10 Mbit/s class: at most 10 ($down)" at_least 10 "$down"
  holds "no merged packets ($bytes bytes in $packets)" [ "$bytes" -le $((packets * 1514)) ]
  tc qdisc delete dev "$NETWORK_LAN" root
}

test_imq_standin() {
  local before
  imq_standin_up
  before=$(counter imq0 tx_packets)
  in_lan ping -q -c 5 -i 0.2 -I 10.0.16.0 "$NETWORK_INET_ADDRESS" >/dev/null
  expect "5 echoes and 5 answers pass imq0 once each" 10 "$(($(counter imq0 tx_packets) - before))"
  imq_standin_down
  fails "imq_standin_down removes the device" [ -e /sys/class/net/imq0 ]
  holds "packets pass without the stand-in" ping_up 10.0.16.0
}

# No neighbour discovery, IPv6 or other chatter in the counters.
test_quiet() {
  local before
  before=$(counter "$NETWORK_WAN" rx_packets)
  in_lan ping -q -c 5 -i 0.2 -I 10.0.16.0 "$NETWORK_INET_ADDRESS" >/dev/null
  sleep 3
  expect "5 echoes are 5 packets on the WAN" 5 "$(($(counter "$NETWORK_WAN" rx_packets) - before))"
}

test_names() {
  network_up wan0 lan1
  network_add_subscribers 10.0.0.1
  holds "other device names" ping_up 10.0.0.1
  holds "the WAN device has its name" [ -e /sys/class/net/wan0 ]
  network_down
  expect "network_down leaves no device" lo "$(ls /sys/class/net)"
  expect "network_down leaves no namespace" "" "$(ip netns list)"
  network_down
  network_up eth1 eth2
}

ping6_up() { in_lan ping -q -c "${2:-1}" -i 0.2 -W 2 -I "$1" "$NETWORK_INET_ADDRESS6" >/dev/null; }
ping6_down() { in_inet ping -q -c 1 -W 2 "$1" >/dev/null; }

test_dual_stack() {
  local before up
  fails "IPv6 is off" ping6_up 2001:db8:0:1200::10
  network_add_ipv6
  network_add_subscribers 2001:db8:0:1200::10 2001:db8:0:1100::/56
  for address in 2001:db8:0:1200::10 2001:db8:0:11ff::ffff; do
    holds "upload from $address" ping6_up "$address"
    holds "download to $address" ping6_down "$address"
  done
  fails "an address of nobody is not reached" ping6_down 2001:db8:0:1200::11
  holds "IPv4 passes too" ping_up 10.0.16.0
  up=$(network_rate upload 2001:db8:0:1200::10 2)
  holds "TCP upload over IPv6 ($up Mbit/s)" at_least "$up" 1
  # What a device says of itself when it gets its address comes within seconds.
  sleep 2
  before=$(counter "$NETWORK_WAN" rx_packets)
  ping6_up 2001:db8:0:1200::10 5
  sleep 1
  expect "5 echoes are 5 packets on the WAN" 5 "$(($(counter "$NETWORK_WAN" rx_packets) - before))"
}

test_names
test_addresses
test_quiet
test_rates
test_frames
test_imq_standin
test_dual_stack
finish
