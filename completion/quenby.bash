# Completion of quenby(8) for bash.
# shellcheck shell=bash

_quenby_tariff_file() {
  printf '%s\n' /config/tc/tc_tariff.ini
}

# Every option with the kind of its argument; none for one that takes none.
_quenby_options() {
  printf '%s\n' \
    --update:file \
    --clear: \
    --stop: \
    --load: \
    --reload: \
    --restore-if-cfg: \
    --tariff-add:file \
    --tariff-del:tariff \
    --tariff-update:file \
    --tariffs-del: \
    --global-update:file \
    --global-del: \
    --stat: \
    --version: \
    --if-name:interface
}

# The names of the stored tariffs, one a line, as the program reads them.
_quenby_tariffs() {
  LC_ALL=C sed -n '/^[[:space:]]*\[/ {
    s/^[[:space:]]*\[[[:space:]]*//
    /\]/ !d
    s/\].*//
    s/[[:space:]]*$//
    /./ p
  }' "$(_quenby_tariff_file)" 2>/dev/null
}

_quenby_interfaces() {
  local device
  for device in /sys/class/net/*/; do
    device=${device%/}
    [[ ! -e $device ]] || printf '%s\n' "${device##*/}"
  done
}

# The kind of argument of the option OPTION, which may be shortened or have one dash.
_quenby_kind() {
  local name=${1#-} option kind found=()
  name=--${name#-}
  while IFS=: read -r option kind; do
    if [[ $option == "$name" ]]; then
      found=("$kind")
      break
    elif [[ $option == "$name"* ]]; then
      found+=("$kind")
    fi
  done < <(_quenby_options)
  [[ ${#found[@]} -ne 1 ]] || printf '%s\n' "${found[0]}"
}

# What the word at the cursor is: the kind of an option's argument, "end" after "--", or nothing.
_quenby_context() {
  local word kind=
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    if [[ -n $kind ]]; then
      # The "=" between an option and its argument is a word of its own.
      [[ $word == = ]] || kind=
    elif [[ $word == -- ]]; then
      kind=end
      break
    elif [[ $word == -* ]]; then
      kind=$(_quenby_kind "$word")
    fi
  done
  printf '%s\n' "$kind"
}

# Offers those lines of standard input that go on from WORD, quoted in WORD's way.
_quenby_offer() {
  local word=$1 line quoting='s/[][[:space:]!"#$&'\''()*:;<=>?\\^`{|}~]/\\&/g'
  case $word in
    \'*) quoting="s/'/'\\\\''/g" ;;
    # Nothing protects a "!" between these quotes.
    \"*) quoting='/!/d; s/["$\\`]/\\&/g' ;;
  esac
  word=${word#[\'\"]}
  while IFS= read -r line; do
    [[ $line != "$word"* ]] || COMPREPLY+=("$line")
  done < <(LC_ALL=C sed "$quoting")
}

_quenby_files() {
  # Lets readline quote the names, and go on after a directory.
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
}

_quenby() {
  local word=${COMP_WORDS[COMP_CWORD]} kind
  kind=$(_quenby_context)
  COMPREPLY=()
  [[ -z $kind || $word != = ]] || word=
  case $kind in
    file) _quenby_files "$word" ;;
    tariff) _quenby_offer "$word" < <(_quenby_tariffs) ;;
    interface) _quenby_offer "$word" < <(_quenby_interfaces) ;;
    '')
      [[ -n $word && $word != -* ]] || _quenby_offer "$word" < <(_quenby_options | sed 's/:.*//')
      ;;
  esac
}

complete -F _quenby quenby
