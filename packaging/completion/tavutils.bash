# Completion in bash for tavctl, endpoint_scan and reputation_server. What there is to offer, the programs' own help
# texts tell, so that this does not fall behind them.

# The options, or the subcommands, that the help text of a command lists.
_tavutils_options() { "$@" --help 2>/dev/null | sed -nE 's/^ +(-[a-zA-Z],)?(--[a-z][a-z-]*).*/\2/p'; }
_tavutils_subcommands() { "$@" --help 2>/dev/null | sed -nE '/^Subcommands:/,/^$/s/^  ([a-z][a-z0-9-]*) .*/\1/p'; }

_tavutils() {
  local current=${COMP_WORDS[COMP_CWORD]} command=("${COMP_WORDS[0]/#\~/$HOME}") word offers
  COMPREPLY=()
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word != -- ]] || return 0 # another program's words: readline offers files
    [[ $word == -* ]] || ! grep -qxF -- "$word" <<<"$(_tavutils_subcommands "${command[@]}")" || command+=("$word")
  done
  if [[ $current == -* ]]; then
    offers=$(_tavutils_options "${command[@]}")
  else
    offers=$(_tavutils_subcommands "${command[@]}")
  fi
  mapfile -t COMPREPLY < <(compgen -W "$offers" -- "$current")
}

complete -o default -F _tavutils tavctl endpoint_scan reputation_server
