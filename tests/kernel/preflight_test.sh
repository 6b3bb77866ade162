#!/bin/bash
# Checks of platform/quenby-preflight with both iptables back ends: all is well
# on the lab's kernel once the firewall script has run, each thing that is hidden
# or in the way is named, and the router is afterwards as it was before.
#
# Call: scripts/lab tests/kernel/preflight_test.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "${1:?build folder}")
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
  tc qdisc
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

# A folder with every program of the machine but NAME...
programs_without() {
  local folder=$scratch/without-$1 name
  mkdir -p "$folder"
  ln -sf /usr/sbin/* /usr/bin/* "$scratch/sudo/sudo" "$folder"
  for name in "$@"; do rm -f "$folder/$name"; done
  echo "$folder"
}

# A folder whose tc fails for commands with the word $1 and is the real one for
# all others.
broken_tc() {
  local folder=$scratch/broken-$1
  mkdir -p "$folder"
  cat >"$folder/tc" <<SCRIPT
#!/bin/sh
case " \$* " in *" $1 "*) exit 2 ;; esac
exec /usr/sbin/tc "\$@"
SCRIPT
  chmod 755 "$folder/tc"
  echo "$folder:$PATH"
}

test_arguments() {
  expect "an argument: status 2" 2 "$(status_of "$PREFLIGHT" all)"
  expect "an argument: usage" "Usage: quenby-preflight" "$(cat "$scratch/output")"
}

# A program unshare that leaves its command where it was.
idle_unshare() {
  local folder=$scratch/idle-unshare
  mkdir -p "$folder"
  printf '#!/bin/sh\nshift\nexec "$@"\n' >"$folder/unshare"
  chmod 755 "$folder/unshare"
  echo "$folder:$PATH"
}

test_no_namespace() {
  local before
  before=$(state)
  names "no namespace" \
    "MISSING kernel features: not tried: unshare -n makes no network namespace" \
    env PATH="$(idle_unshare)"
  expect "no namespace: nothing is left behind" "$before" "$(state)"
}

test_complete() {
  local before
  before=$(state)
  expect "complete: status 0" 0 "$(status_of "$PREFLIGHT")"
  expect "complete: output" "$COMPLETE" "$(cat "$scratch/output")"
  expect "complete: nothing is left behind" "$before" "$(state)"
}

test_other_folder() {
  expect "from another folder: status 0" 0 "$(cd /platform && status_of bash ./quenby-preflight)"
  expect "from another folder: output" "$COMPLETE" "$(cat "$scratch/output")"
}

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

# A chain that nothing jumps to, a switch that is gone, a set without marks.
test_broken_chains() {
  iptables -w -t mangle -D POSTROUTING -j KAVO_QOS_FW_OUT_HOOK
  names "no jump" "MISSING jump to mangle KAVO_QOS_FW_OUT_HOOK: $START"
  iptables -w -t raw -F QOS_CONNTRACK
  "$FIREWALL" start opt-qos
  iptables -w -t raw -F QOS_CONNTRACK
  names "no switch" "MISSING switch in raw QOS_CONNTRACK: $START"
  "$FIREWALL" start opt-qos
  ipset destroy kavo_opt_shaper
  ipset create kavo_opt_shaper hash:ip
  names "set without marks" "MISSING set kavo_opt_shaper with skbinfo: $START"
  ipset destroy kavo_opt_shaper
  "$FIREWALL" start opt-qos
}

test_programs() {
  names "no tc" "MISSING program tc: install iproute2
MISSING traffic control: not tried without tc and ip" \
    env PATH="$(programs_without tc)"
  names "no iptables" "MISSING program iptables: install iptables
MISSING packet marks: not tried without iptables" \
    env PATH="$(programs_without iptables)"
  names "no sudo" "MISSING program sudo: install sudo" env PATH="$(programs_without sudo)"
  names "no unshare" "MISSING program unshare: install util-linux; this check needs it
MISSING kernel features: not tried: no network namespace (unshare -n, CONFIG_NET_NS)" \
    env PATH="$(programs_without unshare)"
}

# The modules stand in for what cannot be tried; the shaper itself needs no ipset.
test_no_ipset() {
  expect "no ipset: status 0" 0 "$(status_of env PATH="$(programs_without ipset)" "$PREFLIGHT")"
  expect "no ipset: lines" "note    program ipset: platform/firewall.init needs it, the shaper does not
ok      ipset hash:ip (not tried)
ok      iptables target SET (not tried)" \
    "$(grep -E 'ipset|SET ' "$scratch/output")"
}

test_kernel() {
  names "no fq_codel" \
    "MISSING fq_codel qdisc: needs CONFIG_NET_SCH_FQ_CODEL (module sch_fq_codel)" \
    env PATH="$(broken_tc fq_codel)"
  names "no bpf" "MISSING mark classifier: needs CONFIG_NET_CLS_BPF (module cls_bpf)" \
    env PATH="$(broken_tc bpf)"
  names "no connmark" "MISSING connmark action: needs CONFIG_NET_ACT_CONNMARK (module act_connmark)" \
    env PATH="$(broken_tc connmark)"
}

test_files() {
  mv "$FIREWALL" "$FIREWALL.away"
  names "no firewall script" \
    "MISSING program $FIREWALL: install platform/firewall.init there"
  mv "$FIREWALL.away" "$FIREWALL"
  rmdir /config/tc
  names "no folder" "MISSING folder /config/tc: mkdir -p /config/tc, on a file system that keeps it"
  mkdir /config/tc
  mount -t tmpfs -o ro tmpfs /config/tc
  names "read-only folder" \
    "MISSING folder /config/tc: mkdir -p /config/tc, on a file system that keeps it"
  umount /config/tc
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

GLOBAL=$'[global]\nwan=eth1\nenabled=true\ndownload_speed=20000\nupload_speed=10000'
TARIFFS=$'[a]\nid=4\nip=10.0.0.1\nip=10.0.0.2\ndownload_speed=2000\nupload_speed=1000'

# What else may be on a router, all at once.
others_come() {
  local connections=/proc/sys/net/netfilter/nf_conntrack_max
  hostname no-such-name.invalid
  size=$(cat "$connections")
  echo 499 >"$connections"
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
}

others_go() {
  hostname router
  echo "$size" >/proc/sys/net/netfilter/nf_conntrack_max
  echo 0 >/proc/sys/net/ipv6/conf/all/forwarding
  ip rule del fwmark 0x1/0xff
  ip rule del fwmark 0x10000/0xff0000
  iptables -w -t mangle -D PREROUTING -i eth2 -j MARK --set-mark 1
  iptables -w -t mangle -D PREROUTING -m mark --mark 1 -j ACCEPT
  nft delete table inet others
  tc qdisc del dev eth1 clsact
}

test_others() {
  local move='other rules use bits of 0x80003fff; move them to others (fits.md, Marks)'
  local look='other rules look at bits of 0x80003fff'
  others_come
  names "others" "MISSING mark bits in iptables: $move: 1, the first: -t mangle -A PREROUTING -i eth2 -j MARK --set-xmark 0x1/0xffffffff
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
  others_go
}

NOTES='note    program /usr/sbin/kavo-hal: without it every port counts as 1 Gbit/s'

# Files that a load refuses, with the lines; what the other file says is looked at.
test_bad_files() {
  store "$GLOBAL" $'[a]\nid=4\n  ip = 10.0.0'
  ip link del eth1
  names "bad tariff file" "MISSING stored files: /config/tc/tc_tariff.ini:3:8: \"10.0.0\" is not an IPv4 address
MISSING WAN interface eth1: there is no such device; bring it up, or name another (wan=)"
  expect "bad tariff file: a load refuses it" 1 "$(status_of "$build/quenby" --load)"
  store '[global' hello
  names "both files bad" "MISSING stored files: /config/tc/tc_global.ini:1:1: section header without \"]\"
MISSING stored files: /config/tc/tc_tariff.ini:1:1: no \"=\" in this line"
  rm /config/tc/*.ini
  mv "$CHECK_FILES" "$CHECK_FILES.away"
  names "no check-files" \
    "MISSING program $CHECK_FILES: install the package quenby; the stored files were not read"
  mv "$CHECK_FILES.away" "$CHECK_FILES"
}

# A folder whose sudo takes no time. The real one is tried with each back end.
quick_sudo() {
  local folder=$scratch/sudo
  mkdir "$folder"
  # shellcheck disable=SC2016  # for the stand-in
  printf '#!/bin/sh\n[ "$1" != -n ] || shift\nexec "$@"\n' >"$folder/sudo"
  chmod 755 "$folder/sudo"
  echo "$folder"
}

# What the back end makes no difference to.
test_hidden() {
  local -x PATH=$PATH
  PATH=$(quick_sudo):$PATH
  test_other_folder
  test_shaped
  test_others
  test_bad_files
  test_no_namespace
  test_broken_chains
  expect "all put back: status 0" 0 "$(status_of "$PREFLIGHT")"
  test_programs
  test_no_ipset
  test_kernel
  test_files
  test_ordinary_user
}

run_all() {
  test_no_chains
  "$FIREWALL" start opt-qos
  test_complete
}

platform_install
install -m 755 platform/quenby-preflight "$PREFLIGHT"
install -D -m 755 "$build/check-files" "$CHECK_FILES"
hostname router
echo "127.0.1.1 router" >>/etc/hosts
mkdir -p /config/tc
ln -s "$PWD/platform" /platform
test_arguments
for backend in nft legacy; do
  for name in iptables ip6tables; do
    update-alternatives --set "$name" "/usr/sbin/$name-$backend" >/dev/null
  done
  echo "== $(iptables --version)"
  run_all
  if [ "$backend" = nft ]; then test_hidden; fi
  "$FIREWALL" stop opt-qos
done
finish
