# Completion of quenbyctl(1) for bash.
# shellcheck shell=bash

# The options of each subcommand, with the kind of their argument.
_quenbyctl_options() {
  case $1 in
    check) printf '%s\n' --global:file --tariffs:file --kind:kind --json: --help: ;;
    '') printf '%s\n' check: --help: ;;
  esac
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
    kind) mapfile -t COMPREPLY < <(compgen -W "named stored" -- "$word") ;;
    *)
      mapfile -t COMPREPLY < <(_quenbyctl_options "$command" | sed 's/:.*//' |
        while IFS= read -r option; do [[ $option != "$word"* ]] || echo "$option"; done)
      ;;
  esac
}

complete -F _quenbyctl quenbyctl
