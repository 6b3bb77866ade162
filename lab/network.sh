#!/bin/bash
# A small provider network inside the lab: an internet host, the router (the
# namespace this runs in) and a namespace that holds every subscriber.
#
#   inet 198.51.100.2 -- 198.51.100.1 eth1 [router] eth2 10.255.255.1 -- 10.255.255.2 lan
#
# and, once that is asked for, the same with IPv6:
#
#   inet 2001:db8:ffff:1::2 -- ::1 eth1 [router] eth2 2001:db8:ffff:2::1 -- ::2 lan
#
# Call: source lab/network.sh, then the functions below, or
#       lab/network.sh up [WAN [LAN]] | ipv6 | down | subscribers ADDRESS... |
#                      imq-up [NAME] | imq-down [NAME] | platform
# shellcheck shell=bash

NETWORK_WAN=${NETWORK_WAN:-eth1}
NETWORK_LAN=${NETWORK_LAN:-eth2}
# The card at the other end when WAN is a card of its own (scripts/lab --cable).
NETWORK_INET_CARD=${NETWORK_INET_CARD-}
NETWORK_INET_NS=inet
NETWORK_LAN_NS=lan
NETWORK_WAN_ADDRESS=198.51.100.1
NETWORK_INET_ADDRESS=198.51.100.2
# The link between router and subscribers is the last /30 of 10.0.0.0/8. All
# other addresses of that prefix are routed over it, so subscribers can have any
# of them, and the router needs one neighbour entry instead of thousands.
NETWORK_ROUTER_ADDRESS=10.255.255.1
NETWORK_GATEWAY_ADDRESS=10.255.255.2
NETWORK_PREFIX=10.0.0.0/8
# Subscribers have any address of the first half of 2001:db8::/32.
NETWORK_INET_ADDRESS6=2001:db8:ffff:1::2
NETWORK_GATEWAY_ADDRESS6=2001:db8:ffff:2::2
NETWORK_PREFIX6=2001:db8::/33

NETWORK_WAN_MAC=02:00:00:00:01:01
NETWORK_INET_MAC=02:00:00:00:01:02
NETWORK_LAN_MAC=02:00:00:00:02:01
NETWORK_GATEWAY_MAC=02:00:00:00:02:02

_network_folder=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# Everything here would break the network of a real machine.
network_require_lab() {
  [ -n "${QUENBY_IN_LAB-}" ] && return
  echo "Error: only inside the lab: scripts/lab ${0##*/}" >&2
  return 1
}

# Run a command on the internet host or among the subscribers.
in_inet() { ip netns exec "$NETWORK_INET_NS" "$@"; }
in_lan() { ip netns exec "$NETWORK_LAN_NS" "$@"; }

# Packets must pass the queues one by one and no longer than the MTU: a merged
# packet of 64 KB makes rates uneven and packet counts meaningless. The router
# would merge on receipt (GRO), senders hand over large packets (GSO, TSO).
# Call: _network_no_offload [NAMESPACE] DEVICE
_network_no_offload() {
  local device=${!#} enter=()
  [ $# -eq 1 ] || enter=(ip netns exec "$1")
  "${enter[@]}" ip link set dev "$device" gso_max_segs 1
  "${enter[@]}" ethtool -K "$device" gso off tso off gro off >/dev/null
}

# Only packets of the tests shall show up in counters.
_network_sysctl() {
  "$@" sysctl -q -w net.ipv6.conf.all.disable_ipv6=1 net.ipv6.conf.default.disable_ipv6=1 \
    net.ipv4.conf.all.rp_filter=0 net.ipv4.conf.default.rp_filter=0
}

# Two cards that a cable joins already, the second one in the root namespace yet.
# Call: _network_cards LOCAL MAC NAMESPACE REMOTE MAC CARD
_network_cards() {
  ip link set "$1" down address "$2"
  ip link set "$6" down address "$5"
  ip link set "$6" netns "$3" name "$4"
}

# One cable: LOCAL MAC ADDRESS - NAMESPACE REMOTE MAC ADDRESS, prefix length,
# card.
# Fixed neighbour entries keep ARP out of the counters.
_network_cable() {
  local device=$1 mac=$2 address=$3 namespace=$4 peer=$5 peer_mac=$6 peer_address=$7 length=$8
  local card=${9-}
  if [ -n "$card" ]; then
    _network_cards "$device" "$mac" "$namespace" "$peer" "$peer_mac" "$card"
  else
    ip link add "$device" address "$mac" type veth \
      peer name "$peer" address "$peer_mac" netns "$namespace"
  fi
  ip address add "$address/$length" dev "$device"
  ip -n "$namespace" address add "$peer_address/$length" dev "$peer"
  ip link set "$device" up
  ip -n "$namespace" link set "$peer" up
  ip neighbour replace "$peer_address" lladdr "$peer_mac" dev "$device" nud permanent
  ip -n "$namespace" neighbour replace "$address" lladdr "$mac" dev "$peer" nud permanent
  ip -n "$namespace" route add default via "$address"
  _network_no_offload "$device"
  _network_no_offload "$namespace" "$peer"
}

# Builds the network, after removing one that stands. Arguments or NETWORK_WAN and NETWORK_LAN name the
# router's devices.
network_up() {
  network_require_lab || return
  NETWORK_WAN=${1:-$NETWORK_WAN}
  NETWORK_LAN=${2:-$NETWORK_LAN}
  network_down
  # Without this the module makes ifb0 and ifb1 on its own when it is loaded.
  modprobe ifb numifbs=0 2>/dev/null || true
  _network_sysctl
  sysctl -q -w net.ipv4.ip_forward=1
  local namespace
  for namespace in "$NETWORK_INET_NS" "$NETWORK_LAN_NS"; do
    ip netns add "$namespace"
    _network_sysctl ip netns exec "$namespace"
    ip -n "$namespace" link set lo up
  done
  _network_cable "$NETWORK_WAN" "$NETWORK_WAN_MAC" "$NETWORK_WAN_ADDRESS" \
    "$NETWORK_INET_NS" inet0 "$NETWORK_INET_MAC" "$NETWORK_INET_ADDRESS" 24 "$NETWORK_INET_CARD"
  _network_cable "$NETWORK_LAN" "$NETWORK_LAN_MAC" "$NETWORK_ROUTER_ADDRESS" \
    "$NETWORK_LAN_NS" lan0 "$NETWORK_GATEWAY_MAC" "$NETWORK_GATEWAY_ADDRESS" 30
  ip route add "$NETWORK_PREFIX" via "$NETWORK_GATEWAY_ADDRESS" dev "$NETWORK_LAN"
}

# Gives a device IPv6, an address, and its neighbour, without anything that it
# would send on its own. Call: _network_ipv6_end [NAMESPACE] DEVICE ADDRESS NEIGHBOUR MAC
_network_ipv6_end() {
  local enter=() device address neighbour mac
  [ $# -eq 4 ] || { enter=(ip netns exec "$1"); shift; }
  device=$1 address=$2 neighbour=$3 mac=$4
  "${enter[@]}" ip link set "$device" addrgenmode none
  "${enter[@]}" sysctl -q -w "net.ipv6.conf.$device.accept_ra=0" \
    "net.ipv6.conf.$device.router_solicitations=0" "net.ipv6.conf.$device.disable_ipv6=0"
  "${enter[@]}" ip address add "$address/64" dev "$device" nodad
  "${enter[@]}" ip neighbour replace "$neighbour" lladdr "$mac" dev "$device" nud permanent
}

# Makes the network dual-stack. Only its own devices have IPv6.
network_add_ipv6() {
  network_require_lab || return
  local wan=2001:db8:ffff:1::1 lan=2001:db8:ffff:2::1 namespace
  sysctl -q -w net.ipv6.conf.all.forwarding=1
  _network_ipv6_end "$NETWORK_WAN" "$wan" "$NETWORK_INET_ADDRESS6" "$NETWORK_INET_MAC"
  _network_ipv6_end "$NETWORK_LAN" "$lan" "$NETWORK_GATEWAY_ADDRESS6" "$NETWORK_GATEWAY_MAC"
  _network_ipv6_end "$NETWORK_INET_NS" inet0 "$NETWORK_INET_ADDRESS6" "$wan" "$NETWORK_WAN_MAC"
  _network_ipv6_end "$NETWORK_LAN_NS" lan0 "$NETWORK_GATEWAY_ADDRESS6" "$lan" "$NETWORK_LAN_MAC"
  ip -n "$NETWORK_INET_NS" route add default via "$wan"
  ip -n "$NETWORK_LAN_NS" route add default via "$lan"
  ip route add "$NETWORK_PREFIX6" via "$NETWORK_GATEWAY_ADDRESS6" dev "$NETWORK_LAN"
  # A program binds to an address of a local route as to any other.
  in_lan sysctl -q -w net.ipv6.conf.lo.disable_ipv6=0 net.ipv6.ip_nonlocal_bind=1
}

# Gives the subscriber namespace addresses or whole ranges (10.0.3.0/24). A route
# of type local makes an address the namespace's own, at a fraction of the cost
# of an address on a device; give a program its address with -B, -I or bind.
network_add_subscribers() {
  network_require_lab || return
  [ $# -gt 0 ] || return 0
  printf 'route replace local %s dev lo\n' "$@" | ip -n "$NETWORK_LAN_NS" -batch -
  local address
  for address in "$@"; do
    [[ $address == 10.* || $address == *:* ]] ||
      echo "route replace $address via $NETWORK_GATEWAY_ADDRESS dev $NETWORK_LAN"
  done | ip -batch -
}

# Removes everything that network_up made; nothing to remove is fine. Deleting a
# cable's near end deletes the far one at once, which the end of a namespace
# would do some time later.
network_down() {
  network_require_lab || return
  network_iperf_stop
  local device namespace
  for device in "$NETWORK_WAN" "$NETWORK_LAN"; do
    ip link delete "$device" 2>/dev/null || true
  done
  for namespace in "$NETWORK_INET_NS" "$NETWORK_LAN_NS"; do
    ip netns delete "$namespace" 2>/dev/null || true
  done
}

# Starts iperf3 servers on the internet host, one for each PORT (default 5201);
# a server takes one test at a time.
network_iperf_start() {
  local port
  for port in "${@:-5201}"; do
    in_inet iperf3 --server --daemon --port "$port" --pidfile "/run/iperf3-$port.pid"
  done
  for port in "${@:-5201}"; do
    _network_listens "$port" || return
  done
}

# Waits until the server on PORT answers, 5 s at most.
_network_listens() {
  local tries=0
  until in_inet ss -Hltn "sport = :$1" | grep -q .; do
    tries=$((tries + 1))
    [ "$tries" -lt 50 ] || { echo "Error: no iperf3 server on port $1" >&2; return 1; }
    sleep 0.1
  done
}

network_iperf_stop() {
  local file
  for file in /run/iperf3-*.pid; do
    [ -e "$file" ] || continue
    kill "$(tr -d '\0' <"$file")" 2>/dev/null || true
    rm -f "$file"
  done
}

# Prints the TCP goodput of a subscriber in Mbit/s.
# Call: network_rate download|upload ADDRESS [SECONDS [SKIPPED_SECONDS [PORT]]]
network_rate() {
  local direction=$1 address=$2 seconds=${3:-4} skipped=${4:-0} port=${5:-5201} reverse=()
  local server=$NETWORK_INET_ADDRESS
  [[ $address != *:* ]] || server=$NETWORK_INET_ADDRESS6
  [ "$direction" != download ] || reverse=(--reverse)
  in_lan iperf3 --json --client "$server" --bind "$address" --port "$port" \
    --time "$seconds" --omit "$skipped" "${reverse[@]}" |
    python3 -c 'import json, sys
result = json.load(sys.stdin)
if "error" in result: sys.exit("Error: iperf3: " + result["error"])
print("%.2f" % (result["end"]["sum_received"]["bits_per_second"] / 1e6))'
}

# Stands in for the IMQ device, which no kernel of Debian has: an ifb device of
# its name, fed with every IPv4 packet that the router receives on WAN (downloads)
# and on LAN (uploads). A forwarded packet passes it exactly once, as it would
# with the IMQ target in POSTROUTING. It differs in two ways: packets addressed
# to the router itself pass too, and packets pass before routing.
# Call before the program runs, so that it finds the device.
imq_standin_up() {
  network_require_lab || return
  local name=${1:-imq0} device
  imq_standin_down "$name"
  modprobe ifb numifbs=0 2>/dev/null || true
  ip link add "$name" type ifb
  ip link set "$name" up
  for device in "$NETWORK_WAN" "$NETWORK_LAN"; do
    tc qdisc add dev "$device" handle ffff: ingress
    tc filter add dev "$device" parent ffff: protocol ip prio 1 u32 match u32 0 0 \
      action mirred egress redirect dev "$name"
  done
}

# The redirects go first: they would drop every packet without the device.
imq_standin_down() {
  network_require_lab || return
  local name=${1:-imq0} device
  for device in "$NETWORK_WAN" "$NETWORK_LAN"; do
    tc qdisc delete dev "$device" ingress 2>/dev/null || true
  done
  ip link delete "$name" 2>/dev/null || true
}

# Puts the platform's firewall script where the program calls it. Runs nothing.
platform_install() {
  network_require_lab || return
  mkdir -p /opt/ostrea/sbin
  install -m 755 "$_network_folder/../platform/firewall.init" /opt/ostrea/sbin/firewall.init
}

_network_main() {
  local command=${1-}
  [ $# -eq 0 ] || shift
  case $command in
    up) network_up "$@" ;;
    ipv6) network_add_ipv6 ;;
    down) network_down ;;
    subscribers) network_add_subscribers "$@" ;;
    imq-up) imq_standin_up "$@" ;;
    imq-down) imq_standin_down "$@" ;;
    platform) platform_install ;;
    *) sed -n '/^# Call:/,/^# shell/p' "${BASH_SOURCE[0]}" | sed '$d' >&2; return 2 ;;
  esac
}

if [ "${BASH_SOURCE[0]}" = "$0" ]; then
  set -euo pipefail
  _network_main "$@"
fi
