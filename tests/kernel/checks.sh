# Counting checks for the kernel tests.
#
# Call: source tests/kernel/checks.sh; expect NAME WANTED GOT; holds NAME COMMAND
# [ARGUMENT...]; fails NAME COMMAND [ARGUMENT...]; finish at the end.
# shellcheck shell=bash

_checks_done=0
_checks_failed=0

_check_result() {
  _checks_done=$((_checks_done + 1))
  if [ "$1" = ok ]; then
    echo "ok: $2"
  else
    _checks_failed=$((_checks_failed + 1))
    echo "FAILED: $2"
  fi
}

# The two texts are equal.
expect() {
  if [ "$2" = "$3" ]; then
    _check_result ok "$1"
    return
  fi
  _check_result failed "$1"
  diff <(printf '%s\n' "$2") <(printf '%s\n' "$3") | sed 's/^/    /' || true
}

# The command succeeds.
holds() {
  local name=$1
  shift
  if "$@"; then _check_result ok "$name"; else _check_result failed "$name"; fi
}

# The command fails.
fails() {
  local name=$1
  shift
  if "$@"; then _check_result failed "$name"; else _check_result ok "$name"; fi
}

# Prints the totals; false when a check failed or none was made.
finish() {
  echo "$_checks_done checks, $_checks_failed failed"
  [ "$_checks_done" -gt 0 ] && [ "$_checks_failed" -eq 0 ]
}
