#!/bin/bash
# No argument makes quenby-preflight try something where it was called. This calls
# it in a network namespace of its own, and never in the machine's.
#
# Call: tests/package/probe_test.sh
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

if [ "${1-}" != --apart ]; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(--map-root-user)
  exec unshare --net "${as_root[@]}" "$0" --apart "$(readlink /proc/self/ns/net)"
fi
[ "$(readlink /proc/self/ns/net)" != "${2:?}" ]
export PATH=$PATH:/usr/sbin:/sbin

# The host's kernel may lack one or the other.
state() {
  ip -details link
  tc qdisc
  tc class show dev lo
  tc filter show dev lo
  tc filter show dev lo parent ffff:
  iptables-save | grep -v '^#' || true
  ipset save || true
} 2>/dev/null

# Call: refuses NAME ARGUMENT...
refuses() {
  local name=$1 status=0 said
  shift
  said=$(platform/quenby-preflight "$@" 2>&1) || status=$?
  expect "$name: status" 2 "$status"
  expect "$name: usage" "Usage: quenby-preflight" "$said"
  expect "$name: nothing has changed" "$before" "$(state)"
}

iptables -w -t raw -N KEPT
before=$(state)
holds "there is a state to compare" grep -q ':KEPT' <<<"$before"
refuses "--probe" --probe
refuses "--probe and nothing" --probe ''
refuses "--probe and a word" --probe x
refuses "--probe and another namespace" --probe "$2"
refuses "--probe and this namespace" --probe "$(readlink /proc/self/ns/net)"
refuses "--probe and a process" --probe 1
refuses "--probe and more" --probe x y
refuses "another argument" all
finish
