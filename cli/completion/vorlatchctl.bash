# shellcheck shell=bash
# Completion of vorlatchctl for bash. The words come from the program itself.

# Takes the line apart as far as the cursor, without its quoting: what bash hands on is split at
# = and : as well, which keys and names hold. Sets, in the caller, `words`; `quote`, the quotation
# mark that is open in the last of them; and `kept`, how many characters in front of it stay as they
# are, because bash takes only what follows a separator for the word.
_vorlatchctl_split() {
  local line=$1 word='' in_word=false i char
  words=() quote='' kept=0
  for ((i = 0; i < ${#line}; ++i)); do
    char=${line:i:1}
    if [[ -n $quote && $char == "$quote" ]]; then
      quote=''
    elif [[ $quote != "'" && $char == \\ ]]; then
      ((++i))
      # Within quotation marks most backslashes are no more than that.
      [[ -z $quote || ${line:i:1} == [\"\\\$\`] ]] || word+=\\
      word+=${line:i:1} in_word=true
    elif [[ -n $quote ]]; then
      word+=$char
    elif [[ $char == [\"\'] ]]; then
      quote=$char kept=${#word} in_word=true
    elif [[ $char == [[:blank:]] ]]; then
      ! $in_word || words+=("$word")
      word='' kept=0 in_word=false
    else
      word+=$char in_word=true
      [[ $COMP_WORDBREAKS != *"$char"* ]] || kept=${#word}
    fi
  done
  words+=("$word")
}

# Prints the word as it is typed within the open quotation mark, or without one.
_vorlatchctl_quoted() {
  local word=$1 quote=$2
  case $quote in
    '') printf '%q' "$word" ;;
    "'") printf '%s' "${word//"'"/"'\\''"}" ;;
    *)
      word=${word//\\/\\\\} word=${word//\"/\\\"}
      word=${word//\$/\\\$} word=${word//\`/\\\`}
      printf '%s' "$word"
      ;;
  esac
}

_vorlatchctl() {
  local words quote kept word program
  COMPREPLY=()
  _vorlatchctl_split "${COMP_LINE:0:COMP_POINT}"
  program=${words[0]/#~\//$HOME/}
  type -P "$program" >/dev/null || program=vorlatchctl
  while IFS= read -r word; do
    # A value follows, with no blank in between.
    [[ $word != *= ]] || compopt -o nospace
    word=${word:kept}
    [[ -z $word ]] || COMPREPLY+=("$(_vorlatchctl_quoted "$word" "$quote")")
  done < <(command "$program" __complete -- "${words[@]:1}" 2>/dev/null)
  # The one command that takes a file.
  [[ " ${words[*]} " != *' check '* ]] || compopt -o default
}
complete -F _vorlatchctl vorlatchctl
