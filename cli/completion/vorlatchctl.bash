# shellcheck shell=bash
# Completion of vorlatchctl for bash. The words come from the program itself.

# Splits the line up to the cursor into words without their quoting. COMP_WORDS does not serve,
# because bash also splits it at = and :, which keys and names contain. Sets in the caller: `words`;
# `quote`, the quotation mark still open in the last word; `kept`, the number of characters of that
# word that stay, because bash replaces only what follows its last separator.
_vorlatchctl_split() {
  local line=$1 word='' in_word=false i char
  words=() quote='' kept=0
  for ((i = 0; i < ${#line}; ++i)); do
    char=${line:i:1}
    if [[ -n $quote && $char == "$quote" ]]; then
      quote=''
    elif [[ $quote != "'" && $char == \\ ]]; then
      ((++i))
      # Between quotation marks, a backslash escapes only some characters.
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

# Prints the word quoted to follow the open quotation mark, or quoted by itself.
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
    # A value follows without a blank.
    [[ $word != *= ]] || compopt -o nospace
    # A word that was probably meant may differ before the last separator, where nothing is replaced.
    [[ ${word:0:kept} == "${words[-1]:0:kept}" ]] || continue
    word=${word:kept}
    [[ -z $word ]] || COMPREPLY+=("$(_vorlatchctl_quoted "$word" "$quote")")
  done < <(command "$program" __complete -- "${words[@]:1}" 2>/dev/null)
  # Only these commands take a file.
  [[ ! " ${words[*]} " =~ ' '(check|import|export)' ' ]] || compopt -o default
}
complete -F _vorlatchctl vorlatchctl
