# The lab without a guest: fresh namespaces of the running kernel, with an
# overlay over the machine's files. Only for kernels that have every feature.
#
# Call: source lab/here.sh, then here_run (reads what scripts/lab has set:
# LAB_ROOT, LAB_COMMAND, LAB_SHELL, LAB_TIMEOUT, LAB_OUT_DIR; uses
# lab_environment of lab/guest.sh).
# shellcheck shell=bash

# Ends the namespaces. Killing unshare takes its child, the first process of the
# process namespace, with it, and so everything in there.
_here_cleanup() {
  if [ -n "${_here_pid-}" ]; then
    kill -KILL "$_here_pid" 2>/dev/null || true
    wait "$_here_pid" 2>/dev/null || true
  fi
  [ -z "${_here_scratch-}" ] || rmdir "$_here_scratch" 2>/dev/null || true
}

# Complains and returns 2 when the running kernel lacks something.
_here_check() {
  local missing
  if [ "$(id -u)" -ne 0 ]; then
    echo "lab: --here needs root" >&2
    return 2
  fi
  missing=$(unshare -n -m "$LAB_ROOT/lab/here-probe" 2>&1) || true
  [ -z "$missing" ] || {
    echo "lab: the running kernel ($(uname -r)) lacks:" >&2
    printf '  %s\n' "$missing" | sed '2,$s/^/  /' >&2
    return 2
  }
}

# The arguments of here-enter: scratch folder, out folder or nothing, current
# folder, "shell" or "command", then variables up to "--", then the command.
_here_arguments() {
  local kind=command environment
  [ "$LAB_SHELL" = 0 ] || kind=shell
  eval "environment=($(lab_environment))"
  here_arguments=("$_here_scratch" "$LAB_OUT_DIR" "$PWD" "$kind"
    "${environment[@]}" -- "${LAB_COMMAND[@]}")
}

_here_unshare() {
  exec unshare -n -m -u -i -p --fork --kill-child "$LAB_ROOT/lab/here-enter" \
    "${here_arguments[@]}"
}

# Returns the command's status, or 124 when it does not end in time.
_here_wait() {
  local watch status=0
  timeout "$LAB_TIMEOUT" tail -s 0.1 --pid="$_here_pid" -f /dev/null &
  watch=$!
  wait "$watch" || status=$?
  if [ "$status" -eq 124 ]; then
    echo "lab: timed out after $LAB_TIMEOUT s" >&2
    return 124
  fi
  wait "$_here_pid" || status=$?
  _here_pid=''
  return "$status"
}

here_run() {
  local here_arguments
  _here_check || return
  [ "$LAB_PREPARE" = 0 ] || return 0
  trap _here_cleanup EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  _here_scratch=$(mktemp -d "${TMPDIR:-/tmp}/quenby-lab.XXXXXX")
  _here_arguments
  if [ "$LAB_SHELL" = 1 ]; then
    (_here_unshare)
    return
  fi
  _here_unshare </dev/null &
  _here_pid=$!
  _here_wait
}
