#!/bin/bash
# A router that has booted with the package in place: one build at boot, a quiet journal, firewalls
# that are reloaded, damage, what somebody stopped, broken files, a line that goes and comes back, a
# purge. iptables is the usual one, which is nf_tables underneath.
#
# Call: tests/package/boot_in_lab.sh PACKAGE-FOLDER (which runs this in the lab)
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh
# shellcheck source=lab/network.sh
source lab/network.sh
# shellcheck source=tests/package/steps.sh
source tests/package/steps.sh
network_require_lab

FILES=(/config/tc/tc_global.ini /config/tc/tc_tariff.ini)
OURS='^(loaded|restored|reloaded) '
AMY=8000:9 DEFAULT=8000:3
CARD=$(basename "$(readlink -f /sys/class/net/wan0/device)")

# A pipe that nobody writes to: waiting for it is a pause without a process.
exec {nothing}<> <(:)

# Whether a process of the units is there.
at_work() {
  local file
  for file in /sys/fs/cgroup/system.slice/{,*/}quenby*.service/cgroup.procs; do
    { read -r _ <"$file"; } 2>/dev/null && return
  done
  return 1
}

# Waits until COMMAND succeeds while the units are at rest, 3 min at most. Looking is work too, on the
# one processor that they need.
soon() {
  local end=$((SECONDS + 180))
  until ! at_work && "$@"; do
    [ "$SECONDS" -lt "$end" ] || return 1
    read -r -t 1 -u "$nothing" || true
  done
}

# What the units have said since the boot.
said() { journalctl --boot --output cat --unit 'quenby*' --no-pager; }
builds() { said | grep -cE "$OURS" || true; }
classes() { tc class show dev "$1" 2>/dev/null | grep -o '^class htb [0-9a-f:]*' | sort || true; }
tree_stands() { [ -n "$(classes wan0)" ] && [ -n "$(classes ifb_ingr)" ]; }
bytes_of() { tc -s class show dev wan0 classid "$1" | awk '$1 == "Sent" { print $2 }'; }
stored() { stat -c '%n %i %Y %Z' "${FILES[@]}"; }

# All that marks packets, without counters.
marking() {
  iptables -w -t mangle -S | grep -E 'KAVO_QOS'
  iptables -w -t raw -S | grep -E 'QOS_CONNTRACK'
  ipset list kavo_opt_shaper | grep skbmark | sort
} 2>/dev/null
marked() { [ "$(marking)" = "$whole" ]; }
flushed() { ! iptables -w -t mangle -S KAVO_QOS_FW_OUT_HOOK >/dev/null 2>&1; }
idle() { [ "$(state_of ActiveState "$1")" = inactive ]; }
settled() {
  [ "$(systemctl show --property ActiveState --value quenby-{if@wan0,check,restore}.service)" = \
    $'inactive\n\ninactive\n\ninactive' ]
}
check() { systemctl start quenby-check.service; }

# Gives UNIT settings of its own until the next call. Whoever calls this has systemd read them, which
# takes it seconds. Call: set_unit UNIT SECTION SETTING...
set_unit() {
  mkdir -p "/run/systemd/system/$1.d"
  printf '%s\n' "[$2]" "${@:3}" >"/run/systemd/system/$1.d/test.conf"
}

# Three packets of one kilobyte. A few packets are quicker than a stream, and as good a connection.
amy_sends() { in_lan ping -q -c 3 -i 0.2 -s 1000 -I 10.0.1.10 "$NETWORK_INET_ADDRESS" >/dev/null; }

# A connection that begins now is in its tariff's class and in no other.
amy_is_shaped() {
  local amy default
  amy=$(bytes_of "$AMY") default=$(bytes_of "$DEFAULT")
  amy_sends
  holds "$1: a connection is in its class" test $(($(bytes_of "$AMY") - amy)) -gt 3000
  expect "$1: and not in the default one" "$default" "$(bytes_of "$DEFAULT")"
}

# The journal is told of what starts first with some delay.
audited() { grep -qE 'audit: type=1130|SERVICE_START' <(journalctl --boot --output cat); }

test_surroundings() {
  holds "auditing" soon audited
  fails "the host name is unknown" getent hosts "$(hostname)"
  expect "IPv6 is on" 0 "$(cat /proc/sys/net/ipv6/conf/wan0/disable_ipv6)"
  expect "the line is a card" virtio_net \
    "$(basename "$(readlink /sys/class/net/wan0/device/driver)")"
  expect "nftables.service" active "$(systemctl is-active nftables.service)"
}

test_boot() {
  soon settled
  udevadm settle
  expect "quenby.service" active "$(systemctl is-active quenby.service)"
  expect "one build" 1 "$(builds)"
  expect "what was shaped" "loaded 2 tariffs with 3 addresses on wan0 in N s" \
    "$(said | grep -E "$OURS" | sed 's/in [0-9.]* s/in N s/')"
  expect "numbers are kept" "8000:1 8000:2 8000:3 8000:6 8000:9" \
    "$(classes wan0 | sed 's/.* //' | paste -sd ' ')"
  expect "both trees" "$(classes wan0)" "$(classes ifb_ingr)"
  expect "the change that nobody confirmed was taken back" \
    "tc_global.ini tc_tariff.ini 1580601600 1580601600" \
    "$(find /config/tc -mindepth 1 -printf '%f\n' | sort | paste -sd ' ') $(stat -c %Y "${FILES[@]}" | paste -sd ' ')"
  udevadm trigger --action add /sys/class/net/wan0
  udevadm settle
  soon settled
  expect "a device event of a shaped line builds nothing" 1 "$(builds)"
  expect "the timer's period" "OnUnitInactiveUSec=1min" \
    "$(state_of TimersMonotonic quenby-check.timer | grep -o 'OnUnitInactiveUSec=[^ ]*')"
  expect "a failed start is repeated after" 30s "$(state_of RestartUSec quenby.service)"
}

# What the units said, and what was said about commands that they ran.
test_journal() {
  expect "no complaint" "" "$(journalctl --boot --output short --no-pager |
    grep -E 'quenby|sudo|iptables|shape\[' | grep -iE 'error|fail|denied|not permitted|unable|cannot')"
  expect "nothing of sudo" 0 "$(journalctl --boot --output cat _COMM=sudo | wc -l)"
  expect "what was taken back" "taken back" "$(said | grep taken)"
  expect "the lines of the boot" 5 "$(said | wc -l)"
  said
}

# A firewall that is reloaded takes our chains with it.
test_firewall() {
  local how before
  for how in reload restart; do
    before=$(builds)
    holds "$how of nftables" systemctl "$how" nftables.service
    holds "$how: marked again" soon marked
    soon settled
    expect "$how: one build" $((before + 1)) "$(builds)"
    holds "$how: trees" tree_stands
  done
  amy_is_shaped "afterwards"
  holds "a firewall that is not there is not followed" idle quenby-follow@ufw.service
}

# Each thing that may be missing is seen, and nothing else is reported.
test_damage() {
  fails "all is well" /usr/libexec/quenby/missing
  iptables -w -t mangle -D KAVO_QOS_FW_OUT_HOOK 6
  iptables -w -t mangle -F POSTROUTING
  iptables -w -t raw -R QOS_CONNTRACK 1 -j RETURN
  iptables -w -t raw -F PREROUTING
  ipset flush kavo_opt_shaper
  tc filter del dev wan0 parent ffff:
  tc qdisc del dev wan0 root
  ip link del ifb_ingr
  expect "what is missing" "missing: firewall jump to mangle KAVO_QOS_FW_OUT_HOOK
missing: firewall jump to raw QOS_CONNTRACK
missing: ifb_ingr
missing: set address 10.0.1.10
missing: set address 10.0.2.10
missing: set address 10.0.3.1
missing: wan0 qdisc 8000:
missing: wan0 redirection to ifb_ingr" "$(quenbyctl verify | sort)"
  expect "and is said in short" "; missing: ifb_ingr; missing: wan0 redirection to ifb_ingr and 5 more" \
    "$(/usr/libexec/quenby/missing | sed 's/^<5>[^;]*//')"
  nft flush ruleset
}

# One restoration serves all damage.
timer_has_run() { [ -n "$(state_of LastTriggerUSec quenby-check.timer)" ]; }
test_timer() {
  local before
  before=$(builds)
  set_unit quenby-check.timer Timer OnActiveSec= OnActiveSec=1 OnUnitInactiveSec=2 AccuracySec=1ms
  systemctl daemon-reload
  flock --no-fork /run/quenby.lock sleep 600 &
  systemctl start quenby-check.timer
  holds "the timer has run" soon timer_has_run
  holds "while a run is under way a look does not wait" soon settled
  holds "and does nothing" flushed
  kill %1
  wait
  holds "the next time the timer has the firewall restored" soon marked
  soon settled
  systemctl stop quenby-check.timer
  soon settled
  holds "and the trees" tree_stands
  expect "in one build" $((before + 1)) "$(builds)"
  fails "all is well" /usr/libexec/quenby/missing
  expect "the files are as they were" "$stored_before" "$(stored)"
}

# From here on neither the timer nor a failed start does anything by itself.
slow_down() {
  set_unit quenby-check.timer Timer OnActiveSec= OnActiveSec=1h
  set_unit quenby.service Service RestartSec=600
  systemctl daemon-reload
}

stays_off() {
  check
  holds "$1: a look leaves it so" unshaped
  udevadm trigger --action add /sys/class/net/wan0
  udevadm settle
  soon settled
  holds "$1: stays off when the line appears" unshaped
}
test_stopped_on_purpose() {
  PATH=/usr/libexec/quenby/as-root:$PATH quenby --stop
  stays_off "quenby --stop"
  systemctl stop quenby.service
  holds "systemctl stop: stays off" unshaped
  systemctl reload nftables.service
  soon settled
  holds "stays off when the firewall is reloaded" unshaped
  systemctl start quenby.service
  holds "on again" marked
  expect "the timer starts with the service" active "$(systemctl is-active quenby-check.timer)"
}

# A timer of systemd takes a change back that nobody confirms.
taken_back() { [ "$(sha256sum "${FILES[@]}")" = "$sums" ] && [ ! -e /config/tc/tc_kept ]; }
take_back_timers() { systemctl list-timers --no-legend 'quenby-take-back-*' | wc -l; }
test_confirmation() {
  local sums PATH=/usr/libexec/quenby/as-root:$PATH
  sums=$(sha256sum "${FILES[@]}")
  holds "a change" quenbyctl apply --confirm 3 tariff-del bob
  expect "its timer" 1 "$(take_back_timers)"
  fails "is made" grep bob /config/tc/tc_tariff.ini
  holds "it is taken back by itself" soon taken_back
  holds "and the kernel with it" quenbyctl verify
  holds "a change that is confirmed" quenbyctl apply --confirm 600 load
  holds "in time" quenbyctl confirm
  expect "leaves no timer" 0 "$(take_back_timers)"
  expect "and the files" "$sums" "$(sha256sum "${FILES[@]}")"
}

# No other interface starts a unit, or touches what stands.
test_other_interfaces() {
  local number before
  amy_sends
  before=$(bytes_of "$AMY")
  holds "the tariff has traffic" test "$before" -gt 3000
  for number in {1..5}; do echo "link add line$number type dummy"; done | ip -batch -
  udevadm settle
  expect "no unit for other interfaces" "" \
    "$(systemctl list-units --all --plain --no-legend 'quenby-if@line*')"
  expect "their appearance touches nothing" "$before" "$(bytes_of "$AMY")"
  for number in {1..5}; do echo "link delete line$number"; done | ip -batch -
}

plug_out() { echo "$CARD" >/sys/bus/virtio/drivers/virtio_net/unbind; }
plug_in() {
  echo "$CARD" >/sys/bus/virtio/drivers/virtio_net/bind
  udevadm settle
}

test_broken_file() {
  local before counted
  before=$(builds)
  counted=$(bytes_of "$AMY")
  holds "the tariff has traffic" test "$counted" -gt 3000
  echo nonsense >>/config/tc/tc_tariff.ini
  fails "a reload with a broken file" systemctl reload quenby.service
  expect "leaves the service" active "$(systemctl is-active quenby.service)"
  fails "a restart with a broken file" systemctl restart quenby.service
  holds "the journal names its line" grep -q 'tc_tariff.ini:14:' <(said)
  holds "the shaper works on" test "$(bytes_of "$AMY")" -ge "$counted"
  holds "with its rules" marked
  expect "nothing was built" "$before" "$(builds)"
  expect "the start will be repeated" auto-restart "$(state_of SubState quenby.service)"

  plug_out
  sed -i '/nonsense/d' /config/tc/tc_tariff.ini
  plug_in
  holds "after a failed start the line's appearance starts the service" \
    soon systemctl --quiet is-active quenby.service
  holds "which shapes it" tree_stands
  expect "once" $((before + 1)) "$(builds)"
}

# Once mended, neither a broken file nor a line that was away needs anybody's help.
test_retry() {
  local before stored_before shaped
  before=$(builds)
  shaped=$(classes wan0; classes ifb_ingr)
  set_unit quenby.service Service RestartSec=3
  systemctl daemon-reload
  plug_out
  fails "the line is gone" test -e /sys/class/net/wan0
  echo nonsense >>/config/tc/tc_tariff.ini
  fails "a restart with a broken file" systemctl restart quenby.service
  sed -i '/nonsense/d' /config/tc/tc_tariff.ini
  stored_before=$(stored)
  holds "it is started again by itself" soon systemctl --quiet is-active quenby.service
  expect "its line in the journal" "wan0, which is not there yet," \
    "$(said | tail -n 20 | grep -o 'wan0, which.*yet,')"
  plug_in
  holds "shaped when the line is there" soon tree_stands
  soon settled
  holds "its rules too" marked
  expect "the classes are back" "$shaped" "$(classes wan0; classes ifb_ingr)"
  expect "two builds" $((before + 2)) "$(builds)"
  expect "the files are as they were" "$stored_before" "$(stored)"
}

# The files of an ordinary user, and a platform's script that calls the real sudo.
test_rights() {
  local before
  chown 65534:65534 "${FILES[@]}"
  chmod 600 "${FILES[@]}"
  cp /opt/ostrea/sbin/firewall.init /run/firewall.init
  printf '#!/bin/sh\nsudo -n /run/firewall.init "$@" && /usr/bin/sudo -n /run/firewall.init "$@"\n' \
    >/opt/ostrea/sbin/firewall.init
  before=$(marking)
  iptables -w -t mangle -F POSTROUTING
  holds "a reload with files of somebody else" systemctl reload quenby.service
  expect "mends what is missing" "$before" "$(marking)"
  expect "and leaves nothing" "" "$(quenbyctl verify)"
  expect "they stay theirs" "600 65534 65534" "$(stat -c '%a %u %g' /config/tc/tc_tariff.ini)"
  expect "with their numbers" "id=9 id=6" "$(grep id= /config/tc/tc_tariff.ini | paste -sd ' ')"
  holds "the real sudo was called" test "$(journalctl --boot --output cat _COMM=sudo | wc -l)" -gt 0
  expect "and lacked nothing" "" "$(journalctl --boot --output cat --no-pager | grep 'not permitted')"
  expect "one line" "reloaded 2 tariffs with 3 addresses on wan0" \
    "$(said | grep -o '^reloaded .* on wan0')"
  cp /run/firewall.init /opt/ostrea/sbin/firewall.init
}

# Debian's test loads nothing at its end, and a purge is to find something.
test_life() {
  local PATH=/usr/libexec/quenby/as-root:$PATH fresh
  fresh=$(unshare --net bash -ec "$(declare -f firewall); firewall")
  test_numbers 10
  test_debian
  holds "loading by hand" quenby --load
  test_purge "$fresh"
}

test_surroundings
test_boot
stored_before=$(stored)
test_journal
NETWORK_WAN=wan0 NETWORK_INET_CARD=far0
network_up
network_add_subscribers 10.0.1.10 10.0.2.10
whole=$(marking)
amy_is_shaped "boot"
test_firewall
# Nothing happens by itself while the rest is looked at.
systemctl stop quenby-check.timer
test_damage
test_timer
slow_down
test_stopped_on_purpose
test_confirmation
test_other_interfaces
test_broken_file
test_retry
test_rights
test_life
finish
