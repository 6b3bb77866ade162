# Debian's kernel as an ordinary program: fetched once, kept in the cache folder.
# Programs in it run on the machine's own processor, three times as fast as under
# emulation.
#
# Call: source lab/kernel.sh and lab/user_mode.sh, then lab_user_mode_prepare. It
# sets LAB_USER_MODE, the program, and LAB_MODULES.
# shellcheck shell=bash

# Sets the results for what is in the cache; false when that is nothing.
_user_mode_ready() {
  local found=("$LAB_CACHE"/user-mode/lib/modules/*/)
  [ -d "${found[0]}" ] || return 1
  # shellcheck disable=SC2034  # read by the script that sources this
  LAB_MODULES=${found[0]%/}
  # shellcheck disable=SC2034
  LAB_USER_MODE=$LAB_CACHE/user-mode/usr/bin/linux.uml
}

# The modules get the place where depmod and modprobe look for them.
_user_mode_arrange() {
  mkdir -p "$1/lib" && mv "$1/usr/lib/uml/modules" "$1/lib/" &&
    depmod -b "$1" "$(ls "$1/lib/modules")"
}

# Makes it unless it is there. Of several callers one works and the others wait.
lab_user_mode_prepare() {
  local lock
  _user_mode_ready && return
  mkdir -p "$LAB_CACHE"
  exec {lock}>"$LAB_CACHE/.lock"
  flock "$lock"
  _user_mode_ready ||
    { lab_unpack user-mode-linux "$LAB_CACHE/user-mode" _user_mode_arrange && _user_mode_ready; } ||
    return 1
  exec {lock}>&-
}
