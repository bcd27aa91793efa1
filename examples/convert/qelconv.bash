# bash completion for qelconv: its options as --help tells them, the words that an option takes, and files.
_qelconv() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]} help words=
  help=$("${COMP_WORDS[0]}" --help 2>/dev/null)
  COMPREPLY=()
  if [[ $word == -* ]]; then
    words=$(grep -oE -- '(^|[ ,])--?[a-z][a-z-]*' <<<"$help" | tr -d ' ,')
  elif [[ $previous == --* ]]; then
    # Words stand behind the option, or begin its explanation.
    words=$(sed -nE "s/^  $previous ([^ ]*\|[^ ]*) .*/\1/p; s/^  $previous +KIND +([^ ]*\|[^ ,]*).*/\1/p" <<<"$help" |
      tr '|' '\n' | sort -u)
  fi
  if [[ -n $words ]]; then
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
  else
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    compopt -o filenames 2>/dev/null
  fi
}
complete -F _qelconv qelconv
