#!/bin/bash
# The installed command: one run at a time, and nothing else of a run changed by
# it. It is installed into a private mount namespace with a /run of its own, where
# a script takes the program's place once the program itself has been tried.
#
# Call: tests/package/launcher_test.sh BUILD-FOLDER
set -euo pipefail
build=$(realpath "${1:?Call: tests/package/launcher_test.sh BUILD-FOLDER}")
cd "$(dirname "$0")/../.."
# shellcheck source=tests/kernel/checks.sh
source tests/kernel/checks.sh

if [ "${2-}" != --apart ]; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(--map-root-user)
  exec unshare --mount "${as_root[@]}" "$0" "$build" --apart
fi
mount -t tmpfs -o mode=755 tmpfs /run
quenby=/run/root/sbin/quenby
program=/run/root/libexec/quenby/quenby
lock=/run/quenby.lock
log=/run/log
holders=()
trap 'kill "${holders[@]}" 2>/dev/null || true' EXIT

# Runs the command with its output in /run/output; prints its exit status.
status_of() {
  local status=0
  "$@" >/run/output 2>&1 || status=$?
  echo "$status"
}

test_installation() {
  cmake --install "$build" --prefix /run/root >/dev/null
  expect "files" "/run/root/bin/quenbyctl
/run/root/libexec/quenby/check-files
/run/root/libexec/quenby/quenby
/run/root/sbin/quenby" "$(find /run/root -type f | sort)"
  holds "the program is the one that was built" cmp "$program" "$build/quenby"
  holds "check-files is the one that was built" \
    cmp /run/root/libexec/quenby/check-files "$build/check-files"
  DESTDIR=/run/stage cmake --install "$build" --prefix /usr >/dev/null
  expect "staged: files" "/run/stage/usr/bin/quenbyctl
/run/stage/usr/libexec/quenby/check-files
/run/stage/usr/libexec/quenby/quenby
/run/stage/usr/sbin/quenby" "$(find /run/stage -type f | sort)"
  expect "staged: path" 'program="/usr/libexec/quenby/quenby"' \
    "$(grep '^program=' /run/stage/usr/sbin/quenby)"
  (mkdir /run/near && cd /run/near && cmake --install "$build" --prefix here >/dev/null)
  expect "a prefix below the current folder" 'program="/run/near/here/libexec/quenby/quenby"' \
    "$(grep '^program=' /run/near/here/sbin/quenby)"
}

test_program() {
  expect "its version: status" 0 "$(status_of "$quenby" --version)"
  expect "its version" "Quenby version 0.7" "$(grep '^Quenby' /run/output)"
  expect "an unknown option: status" 1 "$(status_of "$quenby" --bogus)"
  expect "an unknown option" "quenby: unrecognized option '--bogus'" "$(cat /run/output)"
  expect "no argument: status" 1 "$(status_of "$quenby")"
  expect "no argument" "Error: missing argument" "$(cat /run/output)"
}

# What the stand-in does is its first argument. An edit is like the
# program's: read, work, write.
install_stand_in() {
  cat >"$program" <<'END'
#!/bin/bash
case $1 in
  edit) lines=$(cat /run/list); sleep 0.1; printf '%s\n' $lines "$2" >/run/list ;;
  hold) echo "$$" >/run/holder; exec sleep 1000 ;;
  leave) sleep 1000 >/dev/null 2>&1 & echo "$!" >/run/holder ;;
  show) printf '<%s>' "${@:2}"; cat; umask; exit 7 ;;
  *) echo "$*" >>/run/log ;;
esac
END
  chmod 755 "$program"
}

# The command with a wait of SECONDS.
impatient() {
  local copy=/run/quenby-$1
  sed "s/^wait=300$/wait=$1/" "$quenby" >"$copy"
  grep -qx "wait=$1" "$copy"
  chmod 755 "$copy"
  echo "$copy"
}

# Starts a run that goes on until release ends it. Sets holder to its process.
# Call: hold hold|leave
hold() {
  rm -f /run/holder
  "$quenby" "$1" &
  until [ -s /run/holder ]; do sleep 0.05; done
  holder=$(cat /run/holder)
  holders=("$holder")
}
release() {
  kill -KILL "$holder"
  wait
} 2>/dev/null

# shellcheck disable=SC1003,SC2016  # they are meant as they stand
test_arguments() {
  local status=0 said words=('a  b' '' "it's" '"' '\' $'two\nlines' '*' '$HOME' '-n')
  said=$(umask 027; "$quenby" show "${words[@]}" <<<input) || status=$?
  expect "arguments, input and mask" "$(printf '<%s>' "${words[@]}")input
0027" "$said"
  expect "status" 7 "$status"
}

test_lock_file() {
  rm -f "$lock"
  (umask 0 && "$quenby" change)
  expect "a missing lock is made for root alone" "600 0" "$(stat -c '%a %u' "$lock")"
  echo kept >"$lock"
  "$quenby" change
  expect "one that is there stays as it is" kept "$(cat "$lock")"
  rm "$lock"
  "$quenby" --stat
  fails "a look needs none" test -e "$lock"
  "$quenby" change
}

# At boot, and when the package comes. A lock that others could hold is shut.
test_lock_at_boot() {
  local made=(systemd-tmpfiles --create --boot "$PWD/platform/systemd/quenby.conf")
  chmod 666 "$lock"
  holds "what happens at boot" "${made[@]}"
  expect "the lock after it" "600 0" "$(stat -c '%a %u' "$lock")"
  rm "$lock"
  holds "what happens at boot" "${made[@]}"
  expect "a missing lock" "600 0" "$(stat -c '%a %u' "$lock")"
}

test_pairs() {
  local pair number
  : >/run/list
  for pair in {1..10}; do
    for number in 1 2; do "$quenby" edit "$pair.$number" & done
    wait
  done
  expect "ten pairs of edits" "$(printf '%s\n' {1..10}.{1..2} | sort)" "$(sort /run/list)"
}

test_waiting() {
  rm -f "$log"
  hold hold
  "$quenby" waited &
  sleep 1
  fails "it waits" test -e "$log"
  release
  expect "it runs afterwards; a killed holder frees the lock" waited "$(cat "$log")"
}

test_looking() {
  local arguments
  rm -f "$log"
  hold hold
  for arguments in --stat -stat --version -version "--stat --version" "-version --stat"; do
    # shellcheck disable=SC2086  # words
    expect "$arguments does not wait" 0 "$(status_of timeout 20 "$quenby" $arguments)"
  done
  expect "each ran" 6 "$(wc -l <"$log")"
  rm "$log"
  for arguments in "--stat --load" "--load --version" "--if-name --stat eth1" --statx; do
    # shellcheck disable=SC2086
    expect "$arguments waits" 1 "$(status_of "$(impatient 0)" $arguments)"
  done
  fails "none ran" test -e "$log"
  release
}

test_patience() {
  rm -f "$log"
  hold hold
  SECONDS=0
  expect "the wait ends: status" 1 "$(status_of "$(impatient 2)" late)"
  holds "the wait ends in time ($SECONDS s)" [ "$SECONDS" -ge 2 ]
  expect "the wait ends: message" "Error: another run has held $lock for 2 s" "$(cat /run/output)"
  fails "it did not run" test -e "$log"
  release
}

test_children() {
  hold leave
  wait
  expect "a child of the run holds the lock" 1 "$(status_of "$(impatient 1)" late)"
  release
  expect "and frees it" 0 "$(status_of "$(impatient 1)" edit x)"
}

# Call: test_shut_lock NAME COMMAND...
test_shut_lock() {
  local name=$1
  shift
  rm -f "$log"
  expect "$name: status" 1 "$(status_of "$@" "$quenby" change)"
  expect "$name: message" "Error: cannot open $lock: run this as root" "$(cat /run/output)"
  expect "$name, POSIX mode: status" 1 "$(status_of env POSIXLY_CORRECT=1 "$@" "$quenby" change)"
  expect "$name, POSIX mode: message" "Error: cannot open $lock: run this as root" \
    "$(cat /run/output)"
  fails "$name: it did not run" test -e "$log"
}

test_shut_locks() {
  "$quenby" change
  ! [ "$(id -u)" -eq 0 ] || test_shut_lock "ordinary user" \
    setpriv --reuid 65534 --regid 65534 --clear-groups
  chmod 0 "$lock"
  test_shut_lock "shut lock" setpriv --bounding-set -dac_override,-dac_read_search
  rm "$lock"
  mkdir "$lock"
  test_shut_lock "a folder for a lock"
  rmdir "$lock"
}

# Starts from CONTENT of the file that says that shaping is wanted ("-": none); prints what there is
# after a run. Call: wanted_after CONTENT ARGUMENT...
wanted_after() {
  rm -f /run/quenby.on
  [ "$1" = - ] || echo "$1" >/run/quenby.on
  "$quenby" "${@:2}"
  cat /run/quenby.on 2>/dev/null || echo -
}

test_what_is_wanted() {
  local arguments
  for arguments in --load -load --loa --l --load= --reload --rel "--update x" "--tariff-add x" \
    -tariff-add=x "--tariff-del x" "--tariff-update x" --tariffs-del "--global-update x" --global-del \
    "--stop --load" "--clear --update x" "--stat --load" "--load --version"; do
    # shellcheck disable=SC2086  # words
    fails "$arguments: wanted" test "$(wanted_after - $arguments)" = -
  done
  for arguments in --stop -stop --sto --clear -clear --c "--load --stop" "--stop --stat" \
    "--update x --clear"; do
    # shellcheck disable=SC2086
    expect "$arguments: not wanted" - "$(wanted_after --load $arguments)"
  done
  for arguments in --stat --version "--restore-if-cfg --if-name eth1" stop load --bogus; do
    # shellcheck disable=SC2086
    expect "$arguments: as before" before "$(wanted_after before $arguments)"
    # shellcheck disable=SC2086
    expect "$arguments: still not" - "$(wanted_after - $arguments)"
  done
  "$quenby" --load
  expect "the file is for root alone" "600 0" "$(stat -c '%a %u' /run/quenby.on)"
}

# A shell reads more from its surroundings than a program does.
test_surroundings() {
  echo 'echo read >>/run/log' >/run/startup
  rm -f "$log"
  hold hold
  # shellcheck disable=SC2016
  expect "functions of the caller" 1 "$(status_of env 'BASH_FUNC_flock%%=() { :; }' \
    BASH_ENV=/run/startup "$(impatient 0)" change)"
  fails "nothing ran" test -e "$log"
  release
}

test_installation
test_program
install_stand_in
test_arguments
test_lock_file
test_lock_at_boot
test_pairs
test_waiting
test_looking
test_patience
test_children
test_shut_locks
test_what_is_wanted
test_surroundings
finish
