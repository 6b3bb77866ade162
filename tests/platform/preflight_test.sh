#!/bin/bash
# What quenby-preflight makes of other programs, with stand-ins for these: of the texts
# that they print, of those that fail, of those that are missing. Needs neither a guest
# nor root.
#
# Call: tests/platform/preflight_test.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=platform/quenby-preflight
source platform/quenby-preflight

scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
mkdir "$scratch/bin"
PATH=$scratch/bin:$PATH

# NAME TEXT: a program that prints the text.
prints() {
  printf '#!/bin/sh\ncat <<"TEXT"\n%s\nTEXT\n' "$2" >"$scratch/bin/$1"
  chmod 755 "$scratch/bin/$1"
}

# FUNCTION WANTED RULE: the word before the rule in what the function prints, or
# "nothing".
finds() {
  local got
  got=$("$1" <<<"$3")
  expect "$1: $(tail -n 1 <<<"$3")" "$2" "$([ -n "$got" ] && echo "${got%% *}" || echo nothing)"
}

# WANTED OPTIONS: one rule of iptables.
iptables_rule() {
  finds marks_of_iptables "$1" "*mangle
-A PREROUTING $2"
}

test_iptables() {
  iptables_rule sets '-j MARK --set-xmark 0x1/0xffffffff'
  iptables_rule sets '-i eth2 -j MARK --set-xmark 0x0/0xffff'
  iptables_rule sets '-j MARK --set-xmark 0x2000/0x2000'
  iptables_rule sets '-j MARK --set-xmark 0x1/0x0'
  iptables_rule sets '-j MARK --set-xmark 0x80000000/0x80000000'
  iptables_rule sets '-j MARK --set-mark 1'
  iptables_rule sets '-j CONNMARK --save-mark --nfmask 0xffffffff --ctmask 0xffffffff'
  iptables_rule sets '-j CONNMARK --restore-mark --nfmask 0xff --ctmask 0xff'
  iptables_rule sets '-j CONNMARK --restore-mark'
  iptables_rule sets '-j CONNMARK --set-xmark 0x64/0xffffffff'
  iptables_rule sets '-p tcp -j TPROXY --on-port 1 --on-ip 0.0.0.0 --tproxy-mark 0x1/0x1'
  iptables_rule sets '-j SET --map-set other src --map-mark'
  iptables_rule sets '-m socket --transparent --restore-skmark'
  iptables_rule sets '-j HMARK --hmark-tuple sport --hmark-mod 10 --hmark-offset 100 --hmark-rnd 0x1'
  iptables_rule sets '-m mark --mark 0x5 -j MARK --set-xmark 0x1/0xf'
  iptables_rule reads '-m mark --mark 0x5 -j ACCEPT'
  iptables_rule reads '-m mark ! --mark 0x5/0x7 -j ACCEPT'
  iptables_rule reads '-m connmark --mark 0x1/0x3f00 -j ACCEPT'
  iptables_rule nothing '-j MARK --set-xmark 0x10000/0xff0000'
  iptables_rule nothing '-j MARK --set-xmark 0x4000/0x4000'
  iptables_rule nothing '-j CONNMARK --save-mark --nfmask 0xff0000 --ctmask 0xff0000'
  iptables_rule nothing '-m mark --mark 0x5/0xff0000 -j ACCEPT'
  iptables_rule nothing '-m comment --comment "-j MARK --set-xmark 0x1/0x1 \"--mark 1" -j ACCEPT'
  iptables_rule nothing '-p tcp -m tcp --dport 80 -j ACCEPT'
}

# Our own rules, as iptables-save prints them after a load, and those for unanswered
# packets of the documents.
test_our_rules() {
  local rule
  while read -r rule; do iptables_rule nothing "$rule"; done <<'RULES'
! -o eth1 -j RETURN
-m addrtype --src-type LOCAL -j RETURN
-j CONNMARK --restore-mark --nfmask 0x80003fff --ctmask 0x80003fff
-m mark ! --mark 0x0/0x80003fff -j RETURN
-j MARK --set-xmark 0x80000003/0x80003fff
-j SET --map-set kavo_opt_shaper src --map-mark
-j CONNMARK --save-mark --nfmask 0x80003fff --ctmask 0x80003fff
-i eth1 -m connmark --mark 0x0/0x80003fff -j SUBSCRIBER_IN
-m mark --mark 0x80000003/0x80003fff -j DROP
RULES
}

# WANTED RULE: one rule of nft, in a table of our choice.
nft_rule() {
  finds marks_of_nft "$1" "table ${3-inet other} {
	chain c {
		$2"
}

test_nft() {
  prints iptables 'iptables v1.8.9 (nf_tables)'
  nft_rule sets 'meta mark set 0x00000001'
  nft_rule sets 'iifname "eth2" ip saddr 10.0.0.1 counter meta mark set 0x00ff0000 accept'
  nft_rule sets 'meta mark set meta mark & 0xffff01ff | 0x00000100'
  nft_rule sets 'meta mark set meta mark & 0xffff00ff'
  nft_rule sets 'meta mark set meta mark | 0x00000008'
  nft_rule sets 'meta mark set meta mark ^ 0x80000000'
  nft_rule sets 'meta mark set meta mark and 0xffff01ff or 0x00000100'
  nft_rule sets 'meta mark set ct mark'
  nft_rule sets 'meta mark set ct mark & 0x00ff0000'
  nft_rule sets 'ct mark set meta mark'
  nft_rule sets 'ct state 0x8 ct mark set 0x00000005 meta mark set 0x00000006'
  nft_rule sets 'ct mark set ct mark | 0x00010000 meta mark set ct mark'
  nft_rule sets 'meta mark set ip saddr map { 10.0.0.1 : 0x00000001 }'
  nft_rule sets 'meta mark set numgen inc mod 2 offset 100'
  nft_rule sets 'meta mark set 0x00000001' 'netdev filter'
  nft_rule sets 'meta mark set 0x00000001' 'ip own'
  nft_rule reads 'meta mark 0x00000001 accept'
  nft_rule reads 'meta mark & 0x000000ff == 0x00000001 accept'
  nft_rule reads 'ct mark { 0x00000001, 0x00000002 } accept'
  nft_rule reads 'ct mark != 0x00000000 accept'
  nft_rule reads 'meta mark vmap { 0x00000001 : accept }'
  nft_rule nothing 'meta mark set meta mark & 0xff01ffff | 0x00010000'
  nft_rule nothing 'meta mark set meta mark | 0x00010000'
  nft_rule nothing 'meta mark set meta mark and 0xff01ffff or 0x00010000'
  nft_rule nothing 'meta mark and 0x00ff0000 == 0x00010000 accept'
  nft_rule nothing 'meta mark set meta mark & 0x7fffc005 | 0x80000005'
  nft_rule nothing 'ct mark set ct mark & 0xff00ffff'
  nft_rule nothing 'ct mark & 0x00ff0000 != 0x00010000 accept'
  nft_rule nothing 'meta mark & 0x80003fff == 0x00000000 accept'
  nft_rule nothing 'accept comment "meta mark set 0x00000001"'
  nft_rule nothing 'meta mark set 0x00000001' 'ip6 other'
  nft_rule nothing 'meta mark set 0x00000001' 'ip mangle'
  prints iptables 'iptables v1.8.9 (legacy)'
  nft_rule sets 'meta mark set 0x00000001' 'ip mangle'
}

test_routing() {
  finds marks_of_routing sets '32765:	from all fwmark 0x1 lookup 100'
  finds marks_of_routing sets '100:	from 10.0.0.0/8 fwmark 0x1/0xff lookup 100'
  finds marks_of_routing sets '100:	from all fwmark 0x80000000/0xc0000000 lookup 100'
  finds marks_of_routing nothing '100:	from all iif eth2 fwmark 0x10000/0xff0000 lookup 101'
  finds marks_of_routing nothing '100:	from all fwmark 0x80000005/0x80003fff lookup 101'
  finds marks_of_routing nothing '32766:	from all lookup main'
}

test_report() {
  expect "three rules" \
    "MISSING mark bits in nft: other rules use bits of 0x80003fff; move them to others (fits.md, Marks): 2, the first: table inet a: meta mark set 1
note    mark bits in nft: other rules look at bits of 0x80003fff: 1, the first: a b" \
    "$(report_marks nft $'sets table inet a: meta mark set 1\nreads a b\nsets c')"
  expect "no rule" "ok      mark bits in nft" "$(report_marks nft '')"
}

test_flowtables() {
  local table=$'table inet fw4 {\n\tflowtable ft {\n\t\thook ingress priority 0\n\t}\n'
  expect "no flowtable" "ok      no flowtables" "$(check_flowtables 'table inet a {')"
  expect "an idle flowtable" "note    flowtables: there is one, but no rule uses it" \
    "$(check_flowtables "$table")"
  expect "a flowtable in use" \
    "MISSING flowtables: they take uploads out of their tariffs; switch off flow offloading: table inet fw4: meta l4proto 6 flow add @ft" \
    "$(check_flowtables "$table"$'\tchain c {\n\t\tmeta l4proto 6 flow add @ft')"
  rules='-A FORWARD -m conntrack --ctstate ESTABLISHED -j FLOWOFFLOAD --hw'
  expect "iptables's own target" \
    "MISSING flowtables: they take uploads out of their tariffs; switch off flow offloading: $rules" \
    "$(check_flowtables '')"
  rules=''
}

# WANTED LINE...: what tc says about eth1.
qdiscs() {
  local wanted=$1
  shift
  prints tc "$(printf '%s\n' "$@")"
  expect "qdiscs: $1" "$wanted" "$(check_qdiscs eth1)"
}

test_qdiscs() {
  local ours='ok      qdiscs of eth1' ingress='qdisc ingress ffff: parent ffff:fff1 ----------------'
  qdiscs "$ours" 'qdisc noqueue 0: root refcnt 2'
  qdiscs "$ours" 'qdisc mq 0: root' 'qdisc fq_codel 0: parent :1 limit 10240p'
  qdiscs "$ours" 'qdisc htb 8000: root refcnt 2 r2q 10 default 0x2' \
    'qdisc fq_codel 8002: parent 8000:2 limit 600p' "$ingress" \
    'action order 2: mirred (Egress Redirect to device ifb_ingr) stolen'
  qdiscs "$ours" 'qdisc fq_codel 1: root refcnt 2 limit 10240p'
  qdiscs "note    qdiscs of eth1: a load replaces the root qdisc cake 8001:; switch off what made it" \
    'qdisc cake 8001: root refcnt 2 bandwidth 10Mbit'
  qdiscs "note    qdiscs of eth1: a load replaces the root qdisc htb 1:; switch off what made it" \
    'qdisc htb 1: root refcnt 2 r2q 10 default 0x30'
  qdiscs "note    qdiscs of eth1: a load replaces the ingress qdisc and its filters; switch off what made it" \
    'qdisc noqueue 0: root refcnt 2' "$ingress"
  qdiscs "MISSING qdiscs of eth1: a load fails beside clsact; move its programs away, then tc qdisc del dev eth1 clsact" \
    'qdisc noqueue 0: root refcnt 2' 'qdisc clsact ffff: parent ffff:fff1 ----------------'
}

# WANTED SUMMARY [SET]: what is said of the set's size.
addresses() {
  summary=$2
  prints ipset "${3-}"
  expect "addresses: $2 ${3-}" "$1" "$(check_addresses)"
}

test_addresses() {
  local small='Header: family inet hashsize 1024 maxelem 100 skbinfo bucketsize 12'
  addresses "" addresses=65536
  addresses "MISSING addresses: the tariffs have 65537, the set kavo_opt_shaper holds 65536" \
    addresses=65537
  addresses "" addresses=100 "$small"
  addresses "MISSING addresses: the tariffs have 101, the set kavo_opt_shaper holds 100" \
    addresses=101 "$small"
  addresses "" wan=eth1
}

# Makes a folder with stand-ins NAME... that succeed; as the whole path it hides all other programs.
hide_all_but() {
  local name
  rm -rf "$scratch/only"
  mkdir "$scratch/only"
  for name in "$@"; do stands_in "$name" 'exit 0'; done
}

# NAME TEXT: a shell's text takes a program's place in that folder, and notes that it was called.
stands_in() {
  printf '#!/bin/sh\necho "%s" >>"%s"\n%s\n' "$1" "$scratch/called" "$2" >"$scratch/only/$1"
  chmod 755 "$scratch/only/$1"
}

# FUNCTION [ARGUMENT...]: what it says with that path, and the status that comes of it.
says() { (export PATH="$scratch/only" && { "$@" || true; } && echo "status $status"); }

# WANTED NAME...: what is said when these programs are there.
programs() {
  local wanted=$1
  shift
  hide_all_but "$@"
  expect "programs: $*" "$wanted" "$(says check_programs | grep -vE '^ok|/sbin/tc|kavo-hal')"
}

test_programs() {
  programs "status 0" ip tc iptables unshare ipset nft
  programs $'MISSING program tc: install iproute2\nstatus 1' ip iptables unshare ipset nft
  programs $'MISSING program iptables: install iptables\nstatus 1' ip tc unshare ipset nft
  programs $'MISSING program unshare: install util-linux; this check needs it\nstatus 1' \
    ip tc iptables ipset nft
  programs $'note    program ipset: platform/firewall.init needs it, the shaper does not\nstatus 0' \
    ip tc iptables unshare nft
  programs $'note    program nft: without it flowtables and marks in nft tables are not seen\nstatus 0' \
    ip tc iptables unshare ipset
  hide_all_but sudo
  expect "sudo" $'ok      program sudo\nok      sudo without a password\nstatus 0' "$(says check_sudo)"
  stands_in sudo 'exit 1'
  expect "sudo that asks" $'ok      program sudo
MISSING sudo without a password: allow it for root in /etc/sudoers\nstatus 1' "$(says check_sudo)"
  hide_all_but
  expect "no sudo" $'MISSING program sudo: install sudo\nstatus 1' "$(says check_sudo)"
}

# Tries every kernel feature; the stand-ins let nothing of it reach a kernel. Prints what is not well,
# and how many are.
probed() {
  says probe_elsewhere | awk '/^ok/ { ++n; next } !/^note    imq/; END { print n + 0, "ok" }'
}
# shellcheck disable=SC2317  # it takes the place of the program's
probe_elsewhere() {
  apart_from() { true; }
  probe_kernel 1
}

# WANTED WORD: tc refuses commands with the word.
refused() {
  hide_all_but ip tc iptables ipset
  # shellcheck disable=SC2016  # for the stand-in
  stands_in "${3-tc}" 'case " $* " in *" '"$2"' "*) exit 2 ;; esac'
  expect "${3-tc} refuses $2" "$1" "$(probed)"
}

test_kernel() {
  hide_all_but ip tc iptables ipset
  expect "every feature" $'status 0\n20 ok' "$(probed)"
  refused $'MISSING fq_codel qdisc: needs CONFIG_NET_SCH_FQ_CODEL (module sch_fq_codel)\nstatus 1\n19 ok' fq_codel
  refused $'status 0\n20 ok' fw
  refused $'MISSING connmark action: needs CONFIG_NET_ACT_CONNMARK (module act_connmark)\nstatus 1\n19 ok' connmark
  refused $'MISSING ifb device: needs CONFIG_IFB (module ifb)\nstatus 1\n19 ok' ifb ip
  refused $'MISSING iptables match addrtype: needs CONFIG_NETFILTER_XT_MATCH_ADDRTYPE (module xt_addrtype)\nstatus 1\n19 ok' addrtype iptables
  refused $'MISSING ipset hash:ip with skbinfo: needs CONFIG_IP_SET_HASH_IP (module ip_set_hash_ip)\nstatus 1\n19 ok' hash:ip ipset
  # Both kinds of mark classifier.
  stands_in tc 'case " $* " in *" fw "* | *" bpf "*) exit 2 ;; esac'
  stands_in ipset 'exit 0'
  expect "no mark classifier" \
    $'MISSING mark classifier: needs CONFIG_NET_CLS_BPF (module cls_bpf)\nstatus 1\n19 ok' "$(probed)"
}

test_kernel_not_tried() {
  hide_all_but ip iptables ipset
  expect "no tc" $'MISSING traffic control: not tried without tc and ip\nstatus 1\n9 ok' "$(probed)"
  hide_all_but ip tc
  expect "no iptables" $'MISSING packet marks: not tried without iptables\nstatus 1\n11 ok' "$(probed)"
  hide_all_but ip tc iptables modprobe
  expect "no ipset" $'ok      ipset hash:ip (not tried)\nok      iptables target SET (not tried)' \
    "$(says probe_set | grep -v status)"
  stands_in modprobe 'exit 1'
  expect "no ipset, no modules" $'MISSING ipset hash:ip (not tried): needs CONFIG_IP_SET_HASH_IP (module ip_set_hash_ip)
MISSING iptables target SET (not tried): needs CONFIG_NETFILTER_XT_SET (module xt_set)\nstatus 1' \
    "$(says probe_set)"
}

# An unshare that leaves its command where it was must not have anything tried here.
test_no_namespace() {
  local nowhere='MISSING kernel features: not tried: no network namespace (unshare -n, CONFIG_NET_NS)'
  # shellcheck disable=SC2317  # it takes the place of the program's
  load_ifb() { :; }
  hide_all_but ip tc iptables ipset
  expect "no unshare" "$nowhere"$'\nstatus 1' "$(says check_kernel)"
  stands_in unshare 'exit 1'
  expect "an unshare that fails" "$nowhere"$'\nstatus 1' "$(says check_kernel)"
  # shellcheck disable=SC2016  # for the stand-in
  stands_in unshare 'shift; exec "$@"'
  ln -s "$(type -P bash)" "$scratch/only/bash"
  ln -s "$(type -P true)" "$scratch/only/true"
  : >"$scratch/called"
  expect "an unshare that does nothing" \
    $'MISSING kernel features: not tried: unshare -n makes no network namespace\nstatus 1' \
    "$(says check_kernel)"
  expect "it was called, and nothing else" unshare "$(sort -u "$scratch/called")"
}

# The chains that a load needs, as iptables-save prints them.
CHAINS='*raw
:QOS_CONNTRACK - [0:0]
-A PREROUTING -j QOS_CONNTRACK
-A QOS_CONNTRACK -j RETURN
*mangle
:KAVO_QOS_FW_IN_HOOK - [0:0]
:KAVO_QOS_FW_OUT_HOOK - [0:0]
-A PREROUTING -j KAVO_QOS_FW_IN_HOOK
-A POSTROUTING -j KAVO_QOS_FW_OUT_HOOK
*filter
:OSTREA_FW_IN_HOOK - [0:0]
:OSTREA_FW_OUT_HOOK - [0:0]
:KAVO_OPT_QOS_HOOK - [0:0]
-A FORWARD -j OSTREA_FW_IN_HOOK
-A FORWARD -j OSTREA_FW_OUT_HOOK'

# NAME WANTED COMMAND...: what is not well when COMMAND has changed these.
chains() {
  rules=$("${@:3}" <<<"$CHAINS")
  expect "chains: $1" "$2" "$(check_chains | grep -v '^ok' || true)"
  rules=''
}

test_chains() {
  local start="run $FIREWALL start opt-qos"
  chains "all there" "" cat
  chains "no jump" "MISSING jump to mangle KAVO_QOS_FW_OUT_HOOK: $start" sed '/POSTROUTING/d'
  chains "a jump in another table" "MISSING jump to raw QOS_CONNTRACK: $start" \
    sed '/PREROUTING -j QOS/d; s/^-A FORWARD -j OSTREA_FW_IN.*/&\n-A INPUT -j QOS_CONNTRACK/'
  chains "no chain" "MISSING chain filter KAVO_OPT_QOS_HOOK: $start" sed '/KAVO_OPT/d'
  chains "no switch" "MISSING switch in raw QOS_CONNTRACK: $start" sed '/RETURN/d'
}

test_set() {
  local start="run $FIREWALL start opt-qos"
  prints ipset 'Header: family inet hashsize 1024 maxelem 65536 skbinfo bucketsize 12'
  expect "a set with marks" "ok      set kavo_opt_shaper with skbinfo" "$(check_set)"
  prints ipset 'Header: family inet hashsize 1024 maxelem 65536 bucketsize 12'
  expect "a set without marks" "MISSING set kavo_opt_shaper with skbinfo: $start" "$(check_set)"
  prints ipset ''
  expect "no set" "MISSING set kavo_opt_shaper with skbinfo: $start" "$(check_set)"
}

test_places() {
  local FIREWALL=$scratch/firewall.init FOLDER=$scratch/tc
  expect "no firewall script" \
    "MISSING program $FIREWALL: install platform/firewall.init there" "$(check_firewall_script)"
  : >"$FIREWALL"
  expect "one that is no program" \
    "MISSING program $FIREWALL: install platform/firewall.init there" "$(check_firewall_script)"
  chmod 755 "$FIREWALL"
  expect "a firewall script" "ok      program $FIREWALL" "$(check_firewall_script)"
  fails "no folder" writable_folder
  : >"$FOLDER"
  fails "a file in its place" writable_folder
  rm "$FOLDER"
  mkdir "$FOLDER"
  holds "a folder" writable_folder
}

# What getent finds where no name server answers decides.
test_host_name() {
  local name
  name=$(uname -n)
  prints unshare ''
  printf '#!/bin/sh\nshift\nexec "$@"\n' >"$scratch/bin/unshare"
  printf '#!/bin/sh\n[ "$*" = "ahosts %s" ]\n' "$name" >"$scratch/bin/getent"
  chmod 755 "$scratch/bin/getent"
  expect "a host name that resolves" "ok      host name $name" "$(check_host_name)"
  printf '#!/bin/sh\nsleep 60\n' >"$scratch/bin/getent"
  SECONDS=0
  expect "a host name that hangs" \
    "note    host name $name: each sudo waits 14 to 21 s for it while DNS is dead; add the line \"127.0.1.1 $name\" to /etc/hosts" \
    "$(check_host_name)"
  holds "it is not waited for" test "$SECONDS" -le 10
}

# A stand-in for check-files: STATUS SUMMARY ERRORS
check_files_says() {
  CHECK_FILES=$scratch/check-files
  cat >"$CHECK_FILES" <<SCRIPT
#!/bin/sh
[ "\$*" != --summary ] || cat <<"TEXT"
$2
TEXT
[ -z '$3' ] || echo '$3' >&2
exit $1
SCRIPT
  chmod 755 "$CHECK_FILES"
}

test_stored_files() {
  CHECK_FILES=$scratch/none
  expect "no check-files" \
    "MISSING program $CHECK_FILES: install the package quenby; the stored files were not read" \
    "$(check_stored_files)"
  check_files_says 0 'wan=eth1' ''
  expect "accepted files" "ok      stored files" "$(check_stored_files)"
  check_files_says 1 '' $'/a.ini:3:1: why not\n/b.ini: is a directory'
  expect "refused files" "MISSING stored files: /a.ini:3:1: why not
MISSING stored files: /b.ini: is a directory" "$(check_stored_files)"
  check_files_says 127 '' ''
  expect "a check-files that fails" "MISSING stored files: $CHECK_FILES fails" \
    "$(check_stored_files)"
}

# An unshare that leaves its command where it was must not make a device here.
imq_is_tried_apart() {
  printf '#!/bin/sh\n: >"%s"\n' "$scratch/made" >"$scratch/bin/ip"
  printf '#!/bin/sh\nshift\nexec "$@"\n' >"$scratch/bin/unshare"
  chmod 755 "$scratch/bin/ip"
  wan "MISSING WAN interface: name it in the global file (wan=); this kernel has no imq0" \
    $'wan=\nenabled=true'
  fails "imq0 is not tried here" test -e "$scratch/made"
  printf '#!/bin/sh\nexit 0\n' >"$scratch/bin/unshare"
  wan "ok      WAN interface: imq0 in its place" $'wan=\nenabled=true'
  printf '#!/bin/sh\nexit 1\n' >"$scratch/bin/unshare"
}

# WANTED SUMMARY: what is said about the WAN interface.
wan() {
  summary=$2
  expect "WAN: ${2//$'\n'/ }" "$1" "$(check_wan)"
}

test_wan() {
  local gone='there is no such device; bring it up, or name another (wan=)'
  FOLDER=$scratch
  prints unshare ''
  printf '#!/bin/sh\nexit 1\n' >"$scratch/bin/unshare"
  prints tc 'qdisc noqueue 0: root refcnt 2'
  wan $'ok      WAN interface lo\nok      qdiscs of lo' $'wan=lo\nenabled=true'
  wan "MISSING WAN interface no-such-0: $gone" $'wan=no-such-0\nenabled=true'
  wan "MISSING WAN interface ../net/lo: $gone" $'wan=../net/lo\nenabled=true'
  wan "MISSING WAN interface = a: $gone" $'wan== a\nenabled=true'
  wan "note    WAN interface: no stored file names one yet (wan=)" $'wan=\nenabled=true'
  : >"$scratch/tc_tariff.ini"
  wan "MISSING WAN interface: name it in the global file (wan=); this kernel has no imq0" \
    $'wan=\nenabled=true'
  imq_is_tried_apart
  wan $'note    shaping: the global file switches it off (enabled=true switches it on)\nok      WAN interface lo\nok      qdiscs of lo' \
    $'wan=lo\nenabled=false'
  wan "" addresses=4
}

test_iptables
test_our_rules
test_nft
test_routing
test_report
test_flowtables
test_qdiscs
test_addresses
test_programs
test_kernel
test_kernel_not_tried
test_chains
test_set
test_places
test_host_name
test_stored_files
test_wan
test_no_namespace
finish
