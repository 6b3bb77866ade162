# Completion of quenbyctl(1) for bash.
# shellcheck shell=bash

_quenbyctl_commands() {
  printf '%s\n' load: tariff-add:file tariff-update:file tariff-del:tariff update:file \
    global-update:file
}

# The options of each subcommand, with the kind of their argument.
_quenbyctl_options() {
  case $1 in
    check) printf '%s\n' --global:file --tariffs:file --kind:kind --json: --help: ;;
    plan) _quenbyctl_commands && printf '%s\n' --json: --help: ;;
    apply) _quenbyctl_commands &&
      printf '%s\n' --confirm:seconds --take-back: --when-due: --json: --help: ;;
    confirm | verify | who) printf '%s\n' --json: --help: ;;
    repair) printf '%s\n' --no-connections: --json: --help: ;;
    export) printf '%s\n' --format:format --json: --output:file --help: ;;
    top) printf '%s\n' --interval:none --sort:order --filter:tariff --once: --json: --help: ;;
    '') printf '%s\n' check: plan: apply: confirm: verify: repair: who: export: top: --help: --version: ;;
  esac
}

_quenbyctl_tariff_file() {
  printf '%s\n' /config/tc/tc_tariff.ini
}

# The names of the stored tariffs, one a line, quoted for the shell.
_quenbyctl_tariffs() {
  local name
  LC_ALL=C sed -n 's/^[[:space:]]*\[[[:space:]]*\([^]]*[^][:space:]]\)[[:space:]]*\].*/\1/p' \
    "$(_quenbyctl_tariff_file)" 2>/dev/null |
    while IFS= read -r name; do printf '%q\n' "$name"; done
}

# Offers the lines of standard input that go on from WORD.
_quenbyctl_offer() {
  local line
  while IFS= read -r line; do
    [[ $line != "$1"* ]] || COMPREPLY+=("$line")
  done
}

# The kind of argument that the option OPTION of the subcommand takes.
_quenbyctl_kind() {
  _quenbyctl_options "$1" | sed -n "s/^$2://p"
}

_quenbyctl() {
  local word=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]} command=
  COMPREPLY=()
  ((COMP_CWORD < 2)) || command=${COMP_WORDS[1]}
  # The "=" between an option and its argument is a word of its own.
  if [[ $word == = ]]; then
    word=
  elif [[ $before == = ]]; then
    before=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $(_quenbyctl_kind "$command" "$before") in
    file)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$word")
      ;;
    seconds) ;;
    kind) mapfile -t COMPREPLY < <(compgen -W "named stored" -- "$word") ;;
    format) mapfile -t COMPREPLY < <(compgen -W "prometheus json csv" -- "$word") ;;
    order)
      mapfile -t COMPREPLY < <(compgen -W "rate share packets drops backlog name" -- "$word")
      ;;
    none) ;;
    tariff) _quenbyctl_offer "$word" < <(_quenbyctl_tariffs) ;;
    *) _quenbyctl_offer "$word" < <(_quenbyctl_options "$command" | sed 's/:.*//') ;;
  esac
}

complete -F _quenbyctl quenbyctl
