# Completion of vorlatchctl for bash. The words come from the program itself.
_vorlatchctl() {
  local words unfinished word
  # Split at blanks alone: bash would split at = and : as well, which keys and names hold.
  read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
  [[ ${COMP_LINE:0:COMP_POINT} == *[[:blank:]] ]] && words+=('')
  unfinished=${words[-1]}
  COMPREPLY=()
  while IFS= read -r word; do
    [[ $word == *= ]] && compopt -o nospace
    # What bash takes for the unfinished word begins behind the last of its separators.
    [[ $unfinished == *[=:]* ]] && word=${word#"${unfinished%"${unfinished##*[=:]}"}"}
    COMPREPLY+=("$(printf '%q' "$word")")
  done < <("${words[0]}" __complete -- "${words[@]:1}" 2>/dev/null)
}
complete -o default -F _vorlatchctl vorlatchctl
