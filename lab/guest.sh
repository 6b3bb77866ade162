# One guest from start to end: the shared folder, QEMU or the kernel as a program,
# the output on its way, the exit status.
#
# Call: source lab/guest.sh, then guest_run (reads what scripts/lab has set:
# LAB_COMMAND, LAB_SHELL, LAB_TIMEOUT, LAB_CPUS, LAB_MEMORY, LAB_DEVICES,
# LAB_NETWORKS, LAB_FIRST, LAB_AUDIT, LAB_KVM, LAB_IS_USER_MODE, LAB_OUT_DIR, and the
# results of lab_kernel_prepare, lab_user_mode_prepare and lab_debian_prepare).
# shellcheck shell=bash

_guest_pids=()

# Ends what this script has started and removes its temporary folder.
_guest_cleanup() {
  local pid
  for pid in "${_guest_pids[@]}"; do
    kill "$pid" 2>/dev/null || true
  done
  [ -z "${_guest_share-}" ] || _guest_end_processes
  [ -z "${_guest_share-}" ] || rm -rf "$_guest_share"
}

# Caller's variables that reach the command: the QUENBY_ ones and the terminal
# and language settings.
lab_environment() {
  local name
  for name in "${!QUENBY_@}" TERM LANG LC_ALL; do
    case $name in
      QUENBY_LAB_OUT | QUENBY_IN_LAB) ;;
      *) [ -z "${!name-}" ] || printf '%q ' "$name=${!name}" ;;
    esac
  done
}

# True when stdout and stderr are the same terminal, file or pipe. Then the
# guest uses one stream for both, which keeps their lines in order.
_same_output() {
  [ /proc/self/fd/1 -ef /proc/self/fd/2 ]
}

# Prints what guest-run reads; MERGED is 1 when both outputs are one stream.
_guest_settings() {
  local rows=24 columns=80 out=()
  [ ! -t 0 ] || read -r rows columns < <(stty size)
  # A terminal that does not know its size says 0.
  [ "$rows" -gt 0 ] && [ "$columns" -gt 0 ] || rows=24 columns=80
  if [ -n "$LAB_OUT_DIR" ] && [ "$LAB_IS_USER_MODE" = 1 ]; then
    out=(-t hostfs -o "$LAB_OUT_DIR" none)
  elif [ -n "$LAB_OUT_DIR" ]; then
    out=(-t 9p -o 'trans=virtio,version=9p2000.L,msize=262144,cache=mmap' out)
  fi
  # shellcheck disable=SC2153  # lab_kernel_prepare sets LAB_MODULES
  printf 'LAB_%s=%q\n' CWD "$PWD" MODULES "$LAB_MODULES" DEBIAN "$LAB_DEBIAN_ROOT" \
    MERGED "$1" SHELL "$LAB_SHELL" ROWS "$rows" COLUMNS "$columns"
  printf 'LAB_OUT=(%s)\n' "${out[*]@Q}"
  printf 'LAB_COMMAND=(%s)\n' "$(printf '%q ' "${LAB_COMMAND[@]}")"
  printf 'LAB_ENVIRONMENT=(%s)\n' "$(lab_environment)"
}

_guest_share_fill() {
  local merged=0
  ! _same_output || merged=1
  _guest_share=$(mktemp -d "${TMPDIR:-/tmp}/quenby-lab.XXXXXX")
  _guest_settings "$merged" >"$_guest_share/settings"
  install -m 755 "$LAB_ROOT/lab/guest-run" "$LAB_ROOT/lab/guest-init-user-mode" \
    "$LAB_ROOT/lab/guest-debian" "$_guest_share"
  [ -z "$LAB_DEBIAN_ROOT" ] || _guest_debian_fill
  : >"$_guest_share/stdout"
  : >"$_guest_share/stderr"
}

# What guest-init needs to start a Debian: its files, and what of this machine is
# to be seen in there.
_guest_debian_fill() {
  mkdir "$_guest_share/debian"
  printf '%s\n' "$LAB_DEBIAN_ROOT" >"$_guest_share/debian/root"
  printf '%s\n' "$LAB_ROOT" >"$_guest_share/debian/tree"
  printf '%s\n' "$LAB_MODULES" >"$_guest_share/debian/modules"
  cp "$LAB_ROOT/lab/guest.service" "$_guest_share/debian/"
  [ -z "$LAB_FIRST" ] ||
    printf 'cd %q || exit\n%s\n' "$PWD" "$LAB_FIRST" >"$_guest_share/debian/first"
}

# Sets guest_command for a kernel that is a program. It and the processes in it are
# processes of this machine; hostfs shows this machine's files. Quotation marks keep
# a path with spaces one word of the kernel's command line.
_guest_command_user_mode() {
  guest_command=("$LAB_USER_MODE" rootfstype=hostfs rootflags=/ ro "mem=${LAB_MEMORY}M"
    "uml_dir=$_guest_share" con=null 'con0=null,fd:1' quiet panic=-1 "audit=$LAB_AUDIT"
    rcupdate.rcu_cpu_stall_suppress=1 "init=\"$_guest_share/guest-init-user-mode\"")
}

# Sets guest_command for QEMU. Every path of the machine is visible read-only under the
# mount tag "host"; device numbers of several file systems are told apart by
# multidevs=remap. security_model=none: files in the writable shares belong to
# whoever runs QEMU. no_timer_check: on a busy machine the kernel's test of its
# emulated timer can miss every tick and stop the boot. mitigations=off and the
# like: emulation pays dearly for what protects a real machine.
_guest_command() {
  local accelerator=(-accel 'tcg,thread=multi' -cpu 'max,la57=off,smap=off,smep=off,pku=off')
  [ "$LAB_KVM" = 0 ] || accelerator=(-accel kvm -cpu host)
  guest_command=(
    qemu-system-x86_64 -no-user-config -nodefaults -no-reboot -display none
    "${accelerator[@]}" -smp "$LAB_CPUS" -m "$LAB_MEMORY"
    -kernel "$LAB_VMLINUX" -initrd "$LAB_INITRAMFS"
    -append "console=ttyS0 quiet no_timer_check panic=-1 rcupdate.rcu_cpu_stall_suppress=1 \
nowatchdog mitigations=off init_on_alloc=0 apparmor=0 audit=$LAB_AUDIT"
    -serial "file:$(_comma "$_guest_share/console")"
    -device virtio-rng-pci
    -virtfs "local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap"
    -virtfs "local,path=$(_comma "$_guest_share"),mount_tag=lab,security_model=none"
  )
  local network device
  for network in "${LAB_NETWORKS[@]}"; do guest_command+=(-netdev "$network"); done
  for device in "${LAB_DEVICES[@]}"; do guest_command+=(-device "$device"); done
  [ -z "$LAB_OUT_DIR" ] ||
    guest_command+=(-virtfs
      "local,path=$(_comma "$LAB_OUT_DIR"),mount_tag=out,security_model=none,multidevs=remap")
  [ "$LAB_SHELL" = 0 ] ||
    guest_command+=(-chardev 'stdio,id=terminal,signal=off'
      -device virtio-serial-pci -device 'virtconsole,chardev=terminal')
}

# A comma within a QEMU option's value is written twice.
_comma() {
  printf '%s' "${1//,/,,}"
}

# Prints what is added to FILE until the process PID ends, and the rest of it.
_guest_follow() {
  tail -q -c +1 -f -s 0.1 --pid="$1" "$2" &
  _guest_pids+=("$!")
}

# A kernel that is a program starts a session of its own, and leaves processes running
# when a signal ends it.
_guest_end_processes() {
  [ "$LAB_IS_USER_MODE" = 0 ] || pkill -KILL -f "^/.* uml_dir=.*/${_guest_share##*/} " || true
}

# Runs the guest with the command's output following. Sets guest_status.
_guest_boot() {
  local guest_pid tails
  SECONDS=0
  timeout -k 5 "$LAB_TIMEOUT" "${guest_command[@]}" \
    </dev/null >"$_guest_share/monitor" 2>&1 &
  guest_pid=$!
  _guest_pids=("$guest_pid")
  _guest_follow "$guest_pid" "$_guest_share/stdout"
  _guest_follow "$guest_pid" "$_guest_share/stderr" >&2
  tails=("${_guest_pids[@]:1}")
  guest_status=0
  wait "$guest_pid" || guest_status=$?
  _guest_end_processes
  wait "${tails[@]}" || true
  _guest_pids=()
}

# As _guest_boot for the shell: QEMU has the terminal, so it stays in the
# foreground. QEMU puts the terminal into raw mode and back.
_guest_boot_shell() {
  guest_status=0
  SECONDS=0
  timeout --foreground -k 5 "$LAB_TIMEOUT" "${guest_command[@]}" \
    2>"$_guest_share/monitor" || guest_status=$?
}

# The exit status of the whole: the command's, or why there is none.
_guest_status() {
  local status
  if [ -s "$_guest_share/status" ]; then
    status=$(cat "$_guest_share/status")
    return "$status"
  fi
  if [ "$LAB_TIMEOUT" -gt 0 ] && [ "$SECONDS" -ge "$LAB_TIMEOUT" ]; then
    echo "lab: timed out after $LAB_TIMEOUT s" >&2
    return 124
  fi
  echo "lab: the guest ended without an exit status ($guest_status)" >&2
  tail -q -n 20 "$_guest_share/monitor" "$_guest_share/console" >&2 2>/dev/null || true
  return 125
}

guest_run() {
  local guest_command guest_status
  trap _guest_cleanup EXIT
  trap 'exit 129' HUP
  trap 'exit 130' INT
  trap 'exit 143' TERM
  _guest_share_fill
  if [ "$LAB_IS_USER_MODE" = 1 ]; then _guest_command_user_mode; else _guest_command; fi
  if [ "$LAB_SHELL" = 1 ]; then
    _guest_boot_shell
  else
    _guest_boot
  fi
  _guest_status
}
