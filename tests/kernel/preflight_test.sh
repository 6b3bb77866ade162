#!/bin/bash
# Checks of platform/quenby-preflight: all is well on the lab's kernel once the
# firewall script has run, what others have put in the way is named, and the router
# is afterwards as it was before. What it makes of programs that are missing or fail
# needs no kernel: tests/platform/preflight_test.sh.
#
# Call: scripts/lab tests/kernel/preflight_test.sh BACKEND PROGRAM   (nft, or legacy from afar)
set -euo pipefail
backend=${1:?back end of iptables}
build=$(dirname "$(realpath "${2:?program}")")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
network_require_lab

# Where every user can call it, wherever this tree is.
PREFLIGHT=/usr/sbin/quenby-preflight
FIREWALL=/opt/ostrea/sbin/firewall.init
CHECK_FILES=/usr/libexec/quenby/check-files
START="run $FIREWALL start opt-qos"

# Apart from the machine's own /tmp, which shows in the lab and changes while this
# runs.
export TMPDIR=/run/quenby-tmp
mkdir "$TMPDIR"
scratch=$(mktemp -d)

# Runs the command with its output in $scratch/output; prints its exit status.
status_of() {
  local status=0
  "$@" >"$scratch/output" 2>&1 || status=$?
  echo "$status"
}

lines() { grep "^$1 " "$scratch/output" || true; }

# Everything that a check could leave behind. Reading the rules this way makes
# no table.
state() {
  ip -details link
  ip netns list
  tc qdisc | sed 's/ direct_packets_stat [0-9]*//'
  tc filter show dev lo
  iptables-save | grep -v '^#' | sed 's/ \[[0-9:]*\]$//'
  ipset save | sed 's/ initval 0x[0-9a-f]*//'
  find "$TMPDIR" /run/netns /config /opt /etc/iproute2 2>/dev/null | grep -v "^$scratch" | sort
  ls /proc/sys/net/ipv4/conf
}

# Runs the check with ARGUMENT... before it: status 1 and, but for lines of what
# could not be tried, exactly the line WANTED.
# Call: names NAME WANTED [COMMAND ARGUMENT...]
names() {
  local name=$1 wanted=$2
  shift 2
  expect "$name: status 1" 1 "$(status_of "$@" "$PREFLIGHT")"
  expect "$name: line" "$wanted" "$(lines MISSING)"
}

test_arguments() {
  expect "an argument: status 2" 2 "$(status_of "$PREFLIGHT" all)"
  expect "an argument: usage" "Usage: quenby-preflight" "$(cat "$scratch/output")"
}

# Call: test_complete COMMAND...
test_complete() {
  local before
  before=$(state)
  expect "complete: status 0" 0 "$(status_of "$@")"
  expect "complete: output" "$COMPLETE" "$(cat "$scratch/output")"
  expect "complete: nothing is left behind" "$before" "$(state)"
}

from_another_folder() { (cd /platform && bash ./quenby-preflight); }

COMPLETE='ok      program ip
ok      program tc
ok      program /sbin/tc
ok      program iptables
ok      program unshare
note    program /usr/sbin/kavo-hal: without it every port counts as 1 Gbit/s
ok      program sudo
ok      sudo without a password
ok      host name router
ok      program /opt/ostrea/sbin/firewall.init
ok      HTB qdisc
ok      HTB classes
ok      fq_codel qdisc
ok      sfq qdisc
ok      pfifo qdisc
ok      mark classifier
ok      u32 classifier
ok      ingress qdisc
ok      ifb device
ok      connmark action
ok      mirred action
note    imq device: this kernel has none; name a WAN interface (wan=) in the global file
ok      iptables table filter
ok      iptables table mangle
ok      iptables table raw
ok      iptables target MARK
ok      iptables match mark
ok      iptables target CONNMARK
ok      iptables match addrtype
ok      ipset hash:ip with skbinfo
ok      iptables target SET --map-mark
ok      chain mangle KAVO_QOS_FW_OUT_HOOK
ok      chain mangle KAVO_QOS_FW_IN_HOOK
ok      chain filter OSTREA_FW_OUT_HOOK
ok      chain filter OSTREA_FW_IN_HOOK
ok      chain filter KAVO_OPT_QOS_HOOK
ok      chain raw QOS_CONNTRACK
ok      switch in raw QOS_CONNTRACK
ok      mark bits in iptables
ok      set kavo_opt_shaper with skbinfo
ok      folder /config/tc
ok      stored files
note    WAN interface: no stored file names one yet (wan=)
ok      conntrack table
ok      mark bits in ip rule
ok      mark bits in nft
ok      no flowtables
ok      IPv6 forwarding is off'

# Before the firewall script: no chain, no set, and asking makes no table.
test_no_chains() {
  local before
  before=$(state)
  names "no chains" "MISSING chain mangle KAVO_QOS_FW_OUT_HOOK: $START
MISSING chain mangle KAVO_QOS_FW_IN_HOOK: $START
MISSING chain filter OSTREA_FW_OUT_HOOK: $START
MISSING chain filter OSTREA_FW_IN_HOOK: $START
MISSING chain filter KAVO_OPT_QOS_HOOK: $START
MISSING chain raw QOS_CONNTRACK: $START
MISSING switch in raw QOS_CONNTRACK: $START
MISSING set kavo_opt_shaper with skbinfo: $START"
  expect "no chains: nothing is left behind" "$before" "$(state)"
}

test_ordinary_user() {
  names "not root" "MISSING root: run this as root; nothing else was checked" \
    env --chdir=/ setpriv --reuid 65534 --regid 65534 --clear-groups
  expect "not root: one line" 1 "$(wc -l <"$scratch/output")"
}

# GLOBAL TARIFFS
store() {
  printf '%s\n' "$1" >/config/tc/tc_global.ini
  printf '%s\n' "$2" >/config/tc/tc_tariff.ini
}

# A router that is shaped: what the program has made is nobody else's.
test_shaped() {
  local wanted before
  ip link add eth1 type dummy
  ip link set eth1 up
  store "$GLOBAL" "$TARIFFS"
  "$build/quenby" --load
  before=$(state)
  wanted=${COMPLETE/note    WAN interface: no stored file names one yet (wan=)/$'ok      WAN interface eth1\nok      qdiscs of eth1'}
  expect "shaped: status 0" 0 "$(status_of "$PREFLIGHT")"
  expect "shaped: output" "$wanted" "$(cat "$scratch/output")"
  holds "shaped: there are rules" grep -q -- '-A KAVO_QOS_FW_OUT_HOOK .*0x80000003' <<<"$before"
  holds "shaped: there is a tree" grep -q 'htb 8000: dev eth1 root' <<<"$before"
  expect "shaped: nothing is left behind" "$before" "$(state)"
  "$build/quenby" --stop
}

IPV6='ok      u32 classifier of IPv6
ok      mark classifier of IPv6
ok      u32 match of marks
ok      ct action
ok      skbedit action
ok      ip6tables table filter
ok      ip6tables table mangle
ok      ip6tables table raw
ok      ip6tables target MARK
ok      ip6tables target CONNMARK
ok      ip6tables match addrtype
ok      ip6tables match hl
ok      ipset hash:net with skbinfo
ok      ip6tables target SET --map-mark
ok      IPv6 chain mangle KAVO_QOS_FW_OUT_HOOK
ok      IPv6 chain mangle KAVO_QOS_FW_IN_HOOK
ok      IPv6 chain filter OSTREA_FW_OUT_HOOK
ok      IPv6 chain filter OSTREA_FW_IN_HOOK
ok      IPv6 chain filter KAVO_OPT_QOS_HOOK
ok      IPv6 chain raw QOS_CONNTRACK
ok      IPv6 switch in raw QOS_CONNTRACK
ok      mark bits in ip6tables
ok      set kavo_opt_shaper6 with skbinfo'

# The router of test_shaped, with IPv6.
test_shaped_ipv6() {
  local before
  store "$GLOBAL"$'\nipv6=true' "$TARIFFS"$'\nip6=2001:db8::/56'
  "$build/quenby" --load
  before=$(state)
  expect "IPv6: status 0" 0 "$(status_of "$PREFLIGHT")"
  expect "IPv6: output" "$IPV6" "$(sed -n '/of IPv6$/,$p' "$scratch/output")"
  expect "IPv6: nothing is left behind" "$before" "$(state)"
  "$build/quenby" --stop
  store "$GLOBAL" "$TARIFFS"
}

test_damaged_ipv6() {
  store "$GLOBAL"$'\nipv6=true' "$TARIFFS"
  "$FIREWALL" start opt-qos
  ip6tables -w -t mangle -D PREROUTING -j KAVO_QOS_FW_IN_HOOK
  ipset destroy kavo_opt_shaper6
  names "IPv6 damaged" "MISSING IPv6 jump to mangle KAVO_QOS_FW_IN_HOOK: $START
MISSING set kavo_opt_shaper6 with skbinfo: $START"
  "$FIREWALL" start opt-qos
  store "$GLOBAL" "$TARIFFS"
}

GLOBAL=$'[global]\nwan=eth1\nenabled=true\ndownload_speed=20000\nupload_speed=10000'
TARIFFS=$'[a]\nid=4\nip=10.0.0.1\nip=10.0.0.2\ndownload_speed=2000\nupload_speed=1000'

# What else may be on a router, all at once.
others_come() {
  hostname no-such-name.invalid
  echo 499 >/proc/sys/net/netfilter/nf_conntrack_max
  echo 1 >/proc/sys/net/ipv6/conf/all/forwarding
  ip rule add fwmark 0x1/0xff table 100
  ip rule add fwmark 0x10000/0xff0000 table 101
  iptables -w -t mangle -A PREROUTING -i eth2 -j MARK --set-mark 1
  iptables -w -t mangle -A PREROUTING -m mark --mark 1 -j ACCEPT
  nft -f - <<'RULES'
table inet others {
  flowtable fast { hook ingress priority 0; devices = { eth1 }; }
  chain forward {
    type filter hook forward priority 0;
    ct mark set 0x20
    ct mark 0x20 accept
    meta mark set meta mark or 0x10000
    meta l4proto tcp flow add @fast
  }
}
RULES
  tc qdisc add dev eth1 clsact
  mount --bind /config/tc /config/tc
  mount -o remount,bind,ro /config/tc
}

others_go() {
  umount /config/tc
  rm /config/tc/*.ini
  hostname router
  sysctl -q -w net.netfilter.nf_conntrack_max="$1" net.ipv6.conf.all.forwarding=0
  ip rule del fwmark 0x1/0xff
  ip rule del fwmark 0x10000/0xff0000
  iptables -w -t mangle -F PREROUTING
  nft delete table inet others
  ip link del eth1
}

test_others() {
  local move='other rules use bits of 0x80003fff; move them to others (fits.md, Marks)'
  local look='other rules look at bits of 0x80003fff' size
  size=$(cat /proc/sys/net/netfilter/nf_conntrack_max)
  others_come
  names "others" "MISSING mark bits in iptables: $move: 1, the first: -t mangle -A PREROUTING -i eth2 -j MARK --set-xmark 0x1/0xffffffff
MISSING folder /config/tc: mkdir -p /config/tc, on a file system that keeps it
MISSING qdiscs of eth1: a load fails beside clsact; move its programs away, then tc qdisc del dev eth1 clsact
MISSING mark bits in ip rule: $move: 1, the first: from all fwmark 0x1/0xff lookup 100
MISSING mark bits in nft: $move: 1, the first: table inet others: ct mark set 0x00000020
MISSING flowtables: they take uploads out of their tariffs; switch off flow offloading: table inet others: meta l4proto 6 flow add @fast"
  expect "others: notes" "$NOTES
note    host name no-such-name.invalid: each sudo waits 14 to 21 s for it while DNS is dead; add the line \"127.0.1.1 no-such-name.invalid\" to /etc/hosts
note    imq device: this kernel has none; name a WAN interface (wan=) in the global file
note    mark bits in iptables: $look: 1, the first: -t mangle -A PREROUTING -m mark --mark 0x1 -j ACCEPT
note    conntrack table: 499 connections for 2 addresses; at 250 for each it takes net.netfilter.nf_conntrack_max=500
note    mark bits in nft: $look: 1, the first: table inet others: ct mark 0x00000020 accept
note    IPv6 forwarding: it is on, and the IPv6 of subscribers is not shaped (fits.md)" \
    "$(lines note)"
  others_go "$size"
}

NOTES='note    program /usr/sbin/kavo-hal: without it every port counts as 1 Gbit/s'

platform_install
install -m 755 platform/quenby-preflight "$PREFLIGHT"
install -D -m 755 "$build/check-files" "$CHECK_FILES"
hostname router
echo "127.0.1.1 router" >>/etc/hosts
mkdir -p /config/tc
ln -s "$PWD/platform" /platform
for name in iptables ip6tables; do
  update-alternatives --set "$name" "/usr/sbin/$name-$backend" >/dev/null
done
echo "== $(iptables --version)"
# Neither asks iptables for anything, and each start takes long in the emulated machine.
if [ "$backend" = legacy ]; then
  test_arguments
  test_ordinary_user
fi
test_no_chains
"$FIREWALL" start opt-qos
if [ "$backend" = nft ]; then
  test_complete "$PREFLIGHT"
  test_shaped
  test_shaped_ipv6
  test_damaged_ipv6
  test_others
else
  test_complete from_another_folder
fi
finish
