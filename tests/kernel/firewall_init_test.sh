#!/bin/bash
# Checks of platform/firewall.init: what it makes,
# that repeating it changes nothing, that it leaves nothing of its own and all that
# others made, and that its hooks reach the packets they are meant for.
#
# Call: scripts/lab tests/kernel/firewall_init_test.sh BACKEND   (nft or legacy)
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
network_require_lab

SCRIPT=/opt/ostrea/sbin/firewall.init

# The chains that are no table's own, and all rules, by table. Call: made_in iptables|ip6tables
made_in() {
  "$1-save" | awk '/^[*]/ { table = $1 } /^:/ && $2 == "-" { print table, $1 }
    /^-/ { print table, $0 }' | sort --stable --key 1,1
}

# All rules and sets, without counters.
state() {
  made_in iptables
  made_in ip6tables
  ipset save | sed 's/ initval 0x[0-9a-f]*//'
}

chain() { iptables -w -t "$1" -S "$2"; }
start() { sudo "$SCRIPT" start opt-qos; }
stop() { sudo "$SCRIPT" stop opt-qos; }

status_of() {
  local status=0
  "$@" >/dev/null 2>&1 || status=$?
  echo "$status"
}

# True when a ping gets an answer: from the internet host to the subscriber, ...
ping_down() { in_inet ping -q -c 1 -W 1 10.0.0.7 >/dev/null; }
ping_to_router() { in_inet ping -q -c 1 -W 1 "$NETWORK_WAN_ADDRESS" >/dev/null; }
ping_from_router() { ping -q -c 1 -W 1 "$NETWORK_INET_ADDRESS" >/dev/null; }
ping_inside() { in_lan ping -q -c 1 -W 1 -I 10.0.0.7 "$NETWORK_ROUTER_ADDRESS" >/dev/null; }

# Creates the set the way the shaper does: one ipset message with protocol 6,
# revision 4 and the flag for packet marks (0x40), without NLM_F_EXCL.
create_set_like_shaper() {
  python3 - <<'END'
import socket, struct, sys

def attribute(kind, data):
    return (struct.pack("=HH", 4 + len(data), kind) + data).ljust((4 + len(data) + 3) & ~3, b"\0")

body = struct.pack("=BBH", 2, 0, 0)
body += attribute(1, b"\x06") + attribute(2, b"kavo_opt_shaper\0")
body += attribute(3, b"hash:ip\0") + attribute(4, b"\x04") + attribute(5, b"\x02")
body += attribute(0x8007, attribute(0x4008, struct.pack("!I", 0x40)))
sock = socket.socket(socket.AF_NETLINK, socket.SOCK_RAW, 12)
sock.send(struct.pack("=IHHII", 16 + len(body), 6 << 8 | 2, 5, 1, 0) + body)
error = struct.unpack_from("=i", sock.recv(4096), 16)[0]
sys.exit("kernel answers %d" % error if error else 0)
END
}

test_arguments() {
  expect "no argument: status 2" 2 "$(status_of "$SCRIPT")"
  expect "unknown action: status 2" 2 "$(status_of "$SCRIPT" restart opt-qos)"
  expect "unknown part: status 2" 2 "$(status_of "$SCRIPT" start qos)"
  expect "too many arguments: status 2" 2 "$(status_of "$SCRIPT" start opt-qos now)"
  expect "usage goes to stderr" "" "$("$SCRIPT" 2>/dev/null || true)"
  holds "usage is printed" grep -q '^Usage: firewall.init' <("$SCRIPT" 2>&1 || true)
}

test_start() {
  expect "start: status 0" 0 "$(status_of start)"
  expect "mangle POSTROUTING" "-P POSTROUTING ACCEPT
-A POSTROUTING -j KAVO_QOS_FW_OUT_HOOK" "$(chain mangle POSTROUTING)"
  expect "mangle PREROUTING" "-P PREROUTING ACCEPT
-A PREROUTING -j KAVO_QOS_FW_IN_HOOK" "$(chain mangle PREROUTING)"
  expect "mangle OUT chain" "-N KAVO_QOS_FW_OUT_HOOK" "$(chain mangle KAVO_QOS_FW_OUT_HOOK)"
  expect "mangle IN chain" "-N KAVO_QOS_FW_IN_HOOK" "$(chain mangle KAVO_QOS_FW_IN_HOOK)"
  expect "filter FORWARD" "-P FORWARD ACCEPT
-A FORWARD -j OSTREA_FW_OUT_HOOK
-A FORWARD -j OSTREA_FW_IN_HOOK" "$(chain filter FORWARD)"
  expect "filter OUTPUT" "-P OUTPUT ACCEPT
-A OUTPUT -j OSTREA_FW_OUT_HOOK" "$(chain filter OUTPUT)"
  expect "filter INPUT" "-P INPUT ACCEPT
-A INPUT -j OSTREA_FW_IN_HOOK" "$(chain filter INPUT)"
  expect "filter OUT chain" "-N OSTREA_FW_OUT_HOOK" "$(chain filter OSTREA_FW_OUT_HOOK)"
  expect "filter IN chain" "-N OSTREA_FW_IN_HOOK" "$(chain filter OSTREA_FW_IN_HOOK)"
  expect "filter shaper chain" "-N KAVO_OPT_QOS_HOOK" "$(chain filter KAVO_OPT_QOS_HOOK)"
  expect "raw PREROUTING" "-P PREROUTING ACCEPT
-A PREROUTING -j QOS_CONNTRACK" "$(chain raw PREROUTING)"
  expect "raw switch" "-N QOS_CONNTRACK
-A QOS_CONNTRACK -j RETURN" "$(chain raw QOS_CONNTRACK)"
  holds "set" grep -q '^create kavo_opt_shaper hash:ip family inet .*skbinfo' <(ipset save)
  holds "the shaper's creation of the set is taken" create_set_like_shaper
}

# By the stored settings, and by the shaper's note while they do not say so yet.
test_ip6() {
  expect "IPv6 is not shaped: no rules" "$ip6_before" "$(made_in ip6tables)"
  expect "IPv6 is not shaped: no set" 1 "$(ipset -n list | wc -l)"
  mkdir -p /config/tc
  echo "ipv6=false" >/config/tc/tc_global.ini
  start
  expect "IPv6 is switched off: no rules" "$ip6_before" "$(made_in ip6tables)"
  printf '  IPv6 = true \r\n' >/config/tc/tc_global.ini
  start
  expect "IPv6: the same" "$(made_in iptables)" "$(made_in ip6tables)"
  holds "IPv6: set" grep -q '^create kavo_opt_shaper6 hash:net family inet6 .*skbinfo' <(ipset save)
  rm /config/tc/tc_global.ini
  stop
  touch /run/quenby-ipv6
  start
  expect "IPv6 is noted: the same" "$(made_in iptables)" "$(made_in ip6tables)"
}

# What the shaper leaves in the chains while it is active.
fill_like_shaper() {
  iptables -w -t mangle -A KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src --map-mark
  iptables -w -t filter -I OSTREA_FW_OUT_HOOK 1 -j KAVO_OPT_QOS_HOOK
  iptables -w -t filter -A KAVO_OPT_QOS_HOOK -o wan9 -j DROP
  iptables -w -t raw -R QOS_CONNTRACK 1 -j ACCEPT
  ipset add kavo_opt_shaper 10.0.0.9 skbmark 0x80000004/0x80003fff
}

test_repeat() {
  local before
  before=$(state)
  start
  expect "second start changes nothing" "$before" "$(state)"
  fill_like_shaper
  before=$(state)
  start
  expect "start keeps rules, switch and entries" "$before" "$(state)"
}

test_repair() {
  local before
  iptables -w -t raw -F QOS_CONNTRACK
  start
  expect "start puts the switch back" "-N QOS_CONNTRACK
-A QOS_CONNTRACK -j RETURN" "$(chain raw QOS_CONNTRACK)"
  before=$(state)
  iptables -w -t mangle -D POSTROUTING -j KAVO_QOS_FW_OUT_HOOK
  iptables -w -t filter -D INPUT -j OSTREA_FW_IN_HOOK
  ip6tables -w -t mangle -D POSTROUTING -j KAVO_QOS_FW_OUT_HOOK
  ip6tables -w -t raw -F QOS_CONNTRACK
  ipset destroy kavo_opt_shaper6
  start
  expect "start puts jumps back" "$before" "$(state)"
}

test_stop() {
  iptables -w -t filter -I FORWARD 1 -j OSTREA_FW_IN_HOOK
  expect "stop with rules and entries: status 0" 0 "$(status_of stop)"
  expect "stop leaves nothing" "$pristine" "$(state)"
  expect "second stop: status 0" 0 "$(status_of stop)"
  expect "second stop changes nothing" "$pristine" "$(state)"
}

test_restart() {
  start
  expect "start after stop makes the same" "$started" "$(state)"
  stop
}

# Another firewall has made some of it before: a chain with its rule, a jump, the
# set. What it has made stays, and what it deletes meanwhile is not missed.
test_foreign() {
  local before
  iptables -w -t mangle -N KAVO_QOS_FW_OUT_HOOK
  iptables -w -t mangle -A KAVO_QOS_FW_OUT_HOOK -o other9 -j RETURN
  iptables -w -t filter -N OSTREA_FW_IN_HOOK
  iptables -w -t filter -A INPUT -j OSTREA_FW_IN_HOOK
  ipset create kavo_opt_shaper hash:ip family inet skbinfo
  ipset add kavo_opt_shaper 10.0.0.8
  before=$(state)
  start
  start
  expect "the jump of another firewall is not made again" 1 \
    "$(chain filter INPUT | grep -c OSTREA_FW_IN_HOOK)"
  fill_like_shaper
  iptables -w -t filter -D OSTREA_FW_OUT_HOOK -j KAVO_OPT_QOS_HOOK
  iptables -w -t mangle -D KAVO_QOS_FW_OUT_HOOK -j SET --map-set kavo_opt_shaper src --map-mark
  iptables -w -t raw -F
  iptables -w -t raw -X
  ipset del kavo_opt_shaper 10.0.0.9
  expect "stop: status 0" 0 "$(status_of stop)"
  expect "what others made stays" "$before" "$(state)"
  expect "a stop without a start leaves it too" "0 $before" "$(status_of stop) $(state)"
  iptables -w -t mangle -F
  iptables -w -t mangle -X
  iptables -w -F
  iptables -w -X
  ipset destroy kavo_opt_shaper
}

# A set with other properties is told of at once.
test_wrong_set() {
  ipset create kavo_opt_shaper hash:net
  expect "a set of another type: status 1" 1 "$(status_of start)"
  stop
  holds "it is kept" ipset -q -n list kavo_opt_shaper
  ipset destroy kavo_opt_shaper
}

# An early ACCEPT, as firewalls have for established connections, must not keep
# packets from the hooks.
test_packets() {
  iptables -w -A FORWARD -j ACCEPT
  iptables -w -A INPUT -j ACCEPT
  iptables -w -A OUTPUT -j ACCEPT
  start
  holds "forwarded packets pass" ping_down
  holds "the router's packets pass" ping_from_router
  iptables -w -A OSTREA_FW_OUT_HOOK -o "$NETWORK_WAN" -j DROP
  fails "OUT hook stops forwarded packets" ping_down
  fails "OUT hook stops the router's packets" ping_from_router
  holds "OUT hook lets the LAN be" ping_inside
  iptables -w -F OSTREA_FW_OUT_HOOK
  iptables -w -A OSTREA_FW_IN_HOOK -i "$NETWORK_WAN" -j DROP
  fails "IN hook stops forwarded packets" ping_down
  fails "IN hook stops packets to the router" ping_to_router
  holds "IN hook lets the LAN be" ping_inside
  iptables -w -F
  stop
}

# A NOTRACK rule of the platform comes after the switch: RETURN lets it work,
# ACCEPT keeps packets tracked. The counters are those of its own rule.
test_switch() {
  iptables -w -t raw -A PREROUTING -p icmp -j CT --notrack
  start
  ping_down
  holds "RETURN lets NOTRACK rules work" notrack_hit
  iptables -w -t raw -R QOS_CONNTRACK 1 -j ACCEPT
  iptables -w -t raw -Z
  ping_down
  fails "ACCEPT passes NOTRACK rules by" notrack_hit
  iptables -w -t raw -F PREROUTING
  stop
}

notrack_hit() {
  iptables -w -t raw -v -x -n -L PREROUTING | awk '$3 == "CT" && $1 > 0 { hit = 1 } END { exit !hit }'
}

run_all() {
  local pristine started
  pristine=$(state)
  stop
  expect "stop before start changes nothing" "$pristine" "$(state)"
  test_arguments
  ip6_before=$(made_in ip6tables)
  test_start
  test_ip6
  started=$(state)
  test_repeat
  test_repair
  test_stop
  test_restart
  test_foreign
  test_wrong_set
  test_packets
  test_switch
}

network_up
network_add_subscribers 10.0.0.7
platform_install
for name in iptables ip6tables; do
  update-alternatives --set "$name" "/usr/sbin/$name-$1" >/dev/null
done
echo "== $(iptables --version)"
run_all
finish
