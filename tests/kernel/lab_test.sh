#!/bin/bash
# Checks of scripts/lab itself, from the outside: statuses, arguments, output,
# what stays and what vanishes.
#
# Call: tests/kernel/lab_test.sh [TEST...]   (on the machine, not inside the lab)
set -euo pipefail
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

LAB=$PWD/scripts/lab
scratch=$(mktemp -d "${TMPDIR:-/tmp}/lab-test.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
# Temporary folders of the runs below go here, so that leftovers can be seen.
mkdir "$scratch/tmp"
export TMPDIR=$scratch/tmp

# Runs the command with its output in $scratch/stdout and $scratch/stderr; prints
# its exit status.
status_of() {
  local status=0
  "$@" >"$scratch/stdout" 2>"$scratch/stderr" || status=$?
  echo "$status"
}

test_statuses() {
  expect "killed by signal 9: 137" 137 "$(status_of "$LAB" sh -c 'kill -9 $$')"
  expect "no command: 2" 2 "$(status_of "$LAB")"
  expect "unknown option: 2" 2 "$(status_of "$LAB" --no-such true)"
  expect "time of 0: 2" 2 "$(status_of "$LAB" --timeout 0 true)"
}

# shellcheck disable=SC2016,SC1003  # for the inner shells to expand
test_arguments() {
  local folder="$scratch/a folder" wanted
  mkdir "$folder"
  wanted=$(printf '<%s>' "$folder" 'a  b' '' "it's" '$HOME' $'two\nlines' '*' '"' '\' 'ü' 'a b')
  expect "arguments, folder and QUENBY_ variables arrive" "$wanted" "$(cd "$folder" &&
    QUENBY_TEST='a b' "$LAB" bash -c 'printf "<%s>" "$PWD" "$@" "$QUENBY_TEST"' \
      name 'a  b' '' "it's" '$HOME' $'two\nlines' '*' '"' '\' 'ü')"
}

# shellcheck disable=SC2016
test_output() {
  local script='for i in {1..20}; do echo "out $i"; echo "err $i" >&2; done'
  status_of "$LAB" bash -c "$script" >/dev/null
  expect "stdout alone" "$(printf 'out %d\n' {1..20})" "$(cat "$scratch/stdout")"
  expect "stderr alone" "$(printf 'err %d\n' {1..20})" "$(cat "$scratch/stderr")"
  expect "both into one keep their order" "$(bash -c "$script" 2>&1)" \
    "$("$LAB" bash -c "$script" 2>&1)"
  expect "/dev/stderr can be opened again; no line end" "$(printf '1\n2abc')" \
    "$("$LAB" bash -c 'echo 1 >&2; printf 2abc >/dev/stderr' 2>&1 >/dev/null)"
}

test_left_behind() {
  SECONDS=0
  expect "a process left behind does not hold the end up: status 3" 3 \
    "$(status_of "$LAB" sh -c 'sleep 300 & exit 3')"
  holds "it took $SECONDS s" [ "$SECONDS" -lt 250 ]
}

# Looking up a host name that /etc/hosts lacks takes sudo 10 s and more where DNS
# does not answer. The limit is far above the 0.3 s that it takes otherwise, as
# emulation is slow on a busy machine.
test_root() {
  # shellcheck disable=SC2016
  expect "root by real sudo" 0 "$(status_of "$LAB" bash -c 'set -e
    sudo iptables -t mangle -N X; SECONDS=0; sudo true; echo "$SECONDS"
    getent hosts "$(hostname)" >/dev/null')"
  holds "sudo does not wait ($(cat "$scratch/stdout") s)" [ "$(cat "$scratch/stdout")" -lt 8 ]
  expect "no noise of sudo" "" "$(cat "$scratch/stderr")"
}

test_vanish() {
  local mark=quenby-lab-$$
  expect "everything is writable" 0 "$(status_of "$LAB" sh -c "mkdir -p /config/$mark &&
    touch /etc/$mark /opt/$mark /usr/local/$mark /tmp/$mark $PWD/$mark")"
  fails "nothing of it reaches the machine" ls -d \
    "/config/$mark" "/etc/$mark" "/opt/$mark" "/usr/local/$mark" "/tmp/$mark" "$mark" 2>/dev/null
}

test_out() {
  expect "--out" 0 "$(status_of "$LAB" --out "$scratch/out" sh -c \
    'mkdir /lab-out/d && seq 100000 >/lab-out/d/f')"
  expect "--out: the file came back" "$(seq 100000 | md5sum)" "$(md5sum <"$scratch/out/d/f")"
}

test_timeout() {
  SECONDS=0
  expect "time-out: 124" 124 "$(status_of "$LAB" --timeout 45 sh -c 'echo begun; sleep 300')"
  holds "time-out in time ($SECONDS s)" [ "$SECONDS" -lt 75 ]
  expect "time-out: output so far" begun "$(cat "$scratch/stdout")"
  expect "time-out: message" "lab: timed out after 45 s" "$(cat "$scratch/stderr")"
}

# A guest that is being ended takes a moment.
guest_gone() {
  local tries=0
  while pgrep -f "mount_tag=lab.*$TMPDIR|$TMPDIR.*mount_tag=lab" >/dev/null; do
    tries=$((tries + 1))
    [ "$tries" -lt 50 ] || return 1
    sleep 0.2
  done
}

# Its first line arrives while it runs.
test_interrupt() {
  local pid status=0
  "$LAB" sh -c 'echo begun; sleep 300' >"$scratch/stdout" 2>/dev/null &
  pid=$!
  until grep -q begun "$scratch/stdout"; do sleep 0.2; done
  kill -TERM "$pid"
  wait "$pid" || status=$?
  expect "ended by SIGTERM: 143" 143 "$status"
  holds "its guest is gone" guest_gone
}

# Runs a command on a terminal of its own and types the line TEXT at its first
# prompt. Prints what came and the exit status.
# Call: type_at_prompt TEXT COMMAND...
type_at_prompt() {
  python3 -c '
import os, pty, select, sys, time
pid, terminal = pty.fork()
if pid == 0:
    os.execvp(sys.argv[2], sys.argv[2:])
seen, typed, end = b"", False, time.time() + 300
while time.time() < end:
    if not select.select([terminal], [], [], 1)[0]:
        continue
    try:
        seen += os.read(terminal, 4096)
    except OSError:
        break
    if not typed and seen.rstrip().endswith(b"#"):
        typed = True
        os.write(terminal, sys.argv[1].encode() + b"\r")
print(seen.decode(errors="replace"), "status", os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]))
' "$@"
}

test_shell() {
  local printed
  # shellcheck disable=SC2016  # for the shell in the guest
  printed=$(type_at_prompt 'echo is $((6 * 7)) $(hostname); exit 3' "$LAB" --timeout 300 shell)
  holds "the shell runs what is typed" grep -q 'is 42 router' <<<"$printed"
  holds "the status of the shell" grep -q 'status 3$' <<<"$printed"
}

# Two runs that find the kernel unpacked but no initramfs, at the same time.
test_cache_race() {
  local cache=$scratch/cache first status=0
  mkdir -p "$cache/lab"
  ln -s "$(realpath "${QUENBY_CACHE:-.cache}")"/lab/kernel-* "$cache/lab/"
  QUENBY_CACHE=$cache "$LAB" --prepare &
  first=$!
  expect "the second to prepare the cache" 0 "$(QUENBY_CACHE=$cache status_of "$LAB" --prepare)"
  wait "$first" || status=$?
  expect "the first to prepare the cache" 0 "$status"
  expect "one initramfs, no scraps" 1 "$(find "$cache/lab" -maxdepth 1 -name 'initramfs*' | wc -l)"
}

# An ordinary user: "nobody", when root runs this, in a copy of what he needs. The
# tree and its cache may be where he must not go.
test_user() {
  [ "$(id -u)" -eq 0 ] || return 0
  local copy=$scratch/copy
  mkdir -p "$copy/.cache"
  cp -r scripts lab "$copy"
  chmod -R a+rX "$scratch"
  chmod 1777 "$TMPDIR"
  expect "as nobody: status and output" "0 router 6" \
    "$(as_nobody_in "$copy" "$(realpath "${QUENBY_CACHE:-.cache}")" scripts/lab sh -c \
      'sudo id -u; hostname; exit 6' 2>"$scratch/stderr" | tr '\n' ' '; echo "${PIPESTATUS[0]}")"
}

# Runs COMMAND in the tree COPY with CACHE shown as its cache.
# Call: as_nobody_in COPY CACHE COMMAND...
as_nobody_in() {
  # shellcheck disable=SC2016  # for the inner shell
  env -u QUENBY_CACHE unshare --mount sh -c 'mount --bind "$2" "$1/.cache" && cd "$1" && shift 2 &&
    exec setpriv --reuid=65534 --regid=65534 --clear-groups "$@"' sh "$@"
}

# The guest's kernel has every feature, so --here is checked in a guest.
test_here() {
  # shellcheck disable=SC2016
  expect "--here in a guest" "$(printf 'here router <a  b>\n7\n0\n124\n0')" "$("$LAB" bash -c '
    scripts/lab --here sh -c "echo \$QUENBY_IN_LAB \$(hostname) \"<\$1>\"; exit 7" name "a  b"
    echo $?
    scripts/lab --here sh -c "mkdir -p /config; touch /config/x /etc/x; ip link add eth9 type dummy"
    ls /config /etc/x /sys/class/net/eth9 2>/dev/null | wc -l
    scripts/lab --here --timeout 2 sleep 100 2>/dev/null
    echo $?
    TMPDIR=/run scripts/lab --here true
    ls -d /run/quenby-lab.* 2>/dev/null | wc -l' 2>&1)"
}

[ $# -gt 0 ] || set -- test_statuses test_arguments test_output test_left_behind test_root \
  test_vanish test_out test_timeout test_interrupt test_shell test_cache_race test_user test_here
for test in "$@"; do "$test"; done
expect "no temporary files are left" "" "$(ls -A "$TMPDIR")"
finish
