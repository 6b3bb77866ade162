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

test_usage() {
  expect "no command: 2" 2 "$(status_of "$LAB")"
  expect "unknown option: 2" 2 "$(status_of "$LAB" --no-such true)"
  expect "time of 0: 2" 2 "$(status_of "$LAB" --timeout 0 true)"
  expect "a kernel without a machine has no devices: 2" 2 \
    "$(status_of "$LAB" --user-mode --device rtl8139 true)"
  expect "nor files that are changed before it starts: 2" 2 \
    "$(status_of "$LAB" --user-mode --debian '' --first true true)"
}

# What the guest of test_run does. It leaves a process running and ends by a signal.
# shellcheck disable=SC2016  # for the shell in the guest
RUN_SCRIPT='
  printf "<%s>" "$PWD" "$@" "$QUENBY_TEST" >/lab-out/arguments
  for i in {1..20}; do echo "out $i"; echo "err $i" >&2; done
  mkdir /lab-out/d && seq 100000 >/lab-out/d/f
  mkdir -p "/config/$QUENBY_MARK" && touch "/etc/$QUENBY_MARK" "/opt/$QUENBY_MARK" \
    "/usr/local/$QUENBY_MARK" "/tmp/$QUENBY_MARK" "$QUENBY_TREE/$QUENBY_MARK" &&
    echo all >/lab-out/written
  (set -e; sudo iptables -t mangle -N X
   getent --service files hosts "$(hostname)" >/dev/null) >/lab-out/root 2>&1
  echo "$?" >/lab-out/root_status
  cd "$QUENBY_TREE" && here >/lab-out/here 2>&1
  echo 1 >&2; printf 2abc >/dev/stderr
  sleep 3000 & kill -9 $$'

# What --here does, which wants every feature of the guest's kernel.
# shellcheck disable=SC2016
HERE_SCRIPT='here() {
  scripts/lab --here sh -c "echo \$QUENBY_IN_LAB \$(hostname) \"<\$1>\"; exit 7" name "a  b"
  echo $?
  scripts/lab --here sh -c "mkdir -p /config/here; touch /config/here/x /etc/x
    ip link add eth9 type dummy"
  ls /config/here /etc/x /sys/class/net/eth9 2>/dev/null | wc -l
  scripts/lab --here --timeout 2 sleep 100 2>/dev/null
  echo $?
  TMPDIR=/run scripts/lab --here true
  ls -d /run/quenby-lab.* 2>/dev/null | wc -l
}'

# One guest for all that an ordinary run shows, as its start takes most of the time.
# shellcheck disable=SC1003,SC2016
test_run() {
  local folder="$scratch/a folder" status mark=quenby-lab-$$
  local words=('a  b' '' "it's" '$HOME' $'two\nlines' '*' '"' '\' 'ü')
  mkdir "$folder"
  SECONDS=0
  status=$(cd "$folder" && QUENBY_TEST='a b' QUENBY_MARK=$mark QUENBY_TREE=${LAB%/scripts/lab} \
    status_of "$LAB" --out "$scratch/out" bash -c "$HERE_SCRIPT$RUN_SCRIPT" name "${words[@]}")
  expect "killed by signal 9: 137" 137 "$status"
  holds "a process left running does not hold the end up ($SECONDS s)" [ "$SECONDS" -lt 500 ]
  expect "arguments, folder and QUENBY_ variables arrive" \
    "$(printf '<%s>' "$folder" "${words[@]}" 'a b')" "$(cat "$scratch/out/arguments")"
  expect "stdout alone" "$(printf 'out %d\n' {1..20})" "$(cat "$scratch/stdout")"
  # The guest's shell has a word to say on the signal.
  expect "stderr alone, /dev/stderr opened again, no line end" \
    "$(printf 'err %d\n' {1..20}; printf '1\n2abc')" \
    "$(sed 's/^2abc.* Killed  .*/2abc/' "$scratch/stderr")"
  expect "--out: the file came back" "$(seq 100000 | md5sum)" "$(md5sum <"$scratch/out/d/f")"
  was_root
  has_vanished "$mark"
  expect "--here in a guest" "$(printf 'here router <a  b>\n7\n0\n124\n0')" \
    "$(cat "$scratch/out/here")"
}

# Looking up a host name that /etc/hosts lacks would take sudo 10 s and more where DNS does not
# answer.
was_root() {
  expect "root by real sudo, and a host name that needs no DNS" 0 "$(cat "$scratch/out/root_status")"
  expect "no noise of sudo" "" "$(cat "$scratch/out/root")"
}

# Call: has_vanished MARK
has_vanished() {
  expect "everything is writable" all "$(cat "$scratch/out/written")"
  fails "nothing of it reaches the machine" ls -d \
    "/config/$1" "/etc/$1" "/opt/$1" "/usr/local/$1" "/tmp/$1" "$1" 2>/dev/null
}

test_timeout() {
  SECONDS=0
  expect "time-out: 124" 124 "$(status_of "$LAB" --cpus 1 --timeout 45 sh -c 'echo begun; sleep 300')"
  holds "time-out in time ($SECONDS s)" [ "$SECONDS" -lt 250 ]
  expect "time-out: output so far" begun "$(cat "$scratch/stdout")"
  expect "time-out: message" "lab: timed out after 45 s" "$(cat "$scratch/stderr")"
}

# The kernel that is a program: the same from the outside, and nothing of it is left.
test_user_mode() {
  local folder="$scratch/a folder of its" mark=quenby-lab-$$
  mkdir "$folder"
  expect "user mode: killed by signal 9: 137" 137 "$(cd "$folder" &&
    QUENBY_TEST='a b' QUENBY_MARK=$mark QUENBY_TREE=${LAB%/scripts/lab} \
      status_of "$LAB" --user-mode --out "$scratch/out 2" bash -c "here() { :; }; $RUN_SCRIPT" name "it's")"
  expect "user mode: arguments, folder and QUENBY_ variables arrive" \
    "$(printf '<%s>' "$folder" "it's" 'a b')" "$(cat "$scratch/out 2/arguments")"
  expect "user mode: stdout alone" "$(printf 'out %d\n' {1..20})" "$(cat "$scratch/stdout")"
  expect "user mode: --out: the file came back" "$(seq 100000 | md5sum)" "$(md5sum <"$scratch/out 2/d/f")"
  expect "user mode: root" 0 "$(cat "$scratch/out 2/root_status")"
  expect "user mode: everything is writable" all "$(cat "$scratch/out 2/written")"
  fails "user mode: nothing of it reaches the machine" ls -d "/config/$mark" "/etc/$mark" "/tmp/$mark" 2>/dev/null
  expect "user mode: time-out: 124" 124 \
    "$(status_of "$LAB" --user-mode --timeout 15 sh -c 'echo begun; sleep 300')"
  expect "user mode: time-out: output so far" begun "$(cat "$scratch/stdout")"
  holds "user mode: its processes are gone" guest_gone
}

# A guest that is being ended takes a moment.
guest_gone() {
  local tries=0
  while pgrep -f "mount_tag=lab.*$TMPDIR|$TMPDIR.*mount_tag=lab|uml_dir=$TMPDIR" >/dev/null; do
    tries=$((tries + 1))
    [ "$tries" -lt 50 ] || return 1
    sleep 0.2
  done
}

# What it prints arrives while it runs; both outputs go into one stream here.
# shellcheck disable=SC2016
test_interrupt() {
  local pid status=0 script='for i in {1..20}; do echo "out $i"; echo "err $i" >&2; done; echo begun'
  "$LAB" --cpus 1 bash -c "$script; sleep 300" >"$scratch/stdout" 2>&1 &
  pid=$!
  until grep -q begun "$scratch/stdout"; do sleep 0.2; done
  expect "both outputs into one keep their order" "$(bash -c "$script" 2>&1)" \
    "$(cat "$scratch/stdout")"
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
  printed=$(type_at_prompt 'echo is $((6 * 7)) $(hostname); exit 3' "$LAB" --cpus 1 --timeout 300 shell)
  holds "the shell runs what is typed" grep -q 'is 42 router' <<<"$printed"
  holds "the status of the shell" grep -q 'status 3$' <<<"$printed"
}

# Ended from the outside, the kernel that is a program leaves nothing running either.
test_user_mode_interrupt() {
  local pid status=0
  "$LAB" --user-mode sh -c 'echo begun; sleep 300' >"$scratch/stdout" 2>&1 &
  pid=$!
  until grep -q begun "$scratch/stdout"; do sleep 0.2; done
  kill -TERM "$pid"
  wait "$pid" || status=$?
  expect "user mode: ended by SIGTERM: 143" 143 "$status"
  holds "user mode: its processes are gone" guest_gone
}

# Two runs that find the kernel unpacked but no initramfs, at the same time.
test_cache_race() {
  local cache=$scratch/cache first status=0
  mkdir -p "$cache/lab"
  ln -s "$(realpath "${QUENBY_CACHE:-.cache}")"/lab/{kernel-*,user-mode} "$cache/lab/"
  QUENBY_CACHE=$cache "$LAB" --prepare &
  first=$!
  expect "the second to prepare the cache" 0 "$(QUENBY_CACHE=$cache status_of "$LAB" --prepare)"
  wait "$first" || status=$?
  expect "the first to prepare the cache" 0 "$status"
  expect "one initramfs, one kernel, no scraps" "initramfs vmlinux" \
    "$(find "$cache/lab" -maxdepth 1 -type f -size +0 -printf '%f\n' | sed 's/[-.].*//' | sort | paste -s -d ' ')"
  expect "the kernel is unpacked" "177 E L F" "$(od -An -tc -N 4 "$cache"/lab/vmlinux-* | xargs)"
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
    "$(as_nobody_in "$copy" "$(realpath "${QUENBY_CACHE:-.cache}")" scripts/lab --cpus 1 sh -c \
      'sudo id -u; hostname; exit 6' 2>"$scratch/stderr" | tr '\n' ' '; echo "${PIPESTATUS[0]}")"
}

# Runs COMMAND in the tree COPY with CACHE shown as its cache.
# Call: as_nobody_in COPY CACHE COMMAND...
as_nobody_in() {
  # shellcheck disable=SC2016  # for the inner shell
  env -u QUENBY_CACHE unshare --mount sh -c 'mount --bind "$2" "$1/.cache" && cd "$1" && shift 2 &&
    exec setpriv --reuid=65534 --regid=65534 --clear-groups "$@"' sh "$@"
}

# private_clone_test.sh runs test_user, where the tree itself is closed to others.
[ $# -gt 0 ] || set -- test_usage test_run test_timeout test_interrupt test_shell \
  test_user_mode test_user_mode_interrupt test_cache_race
for test in "$@"; do "$test"; done
expect "no temporary files are left" "" "$(ls -A "$TMPDIR")"
finish
