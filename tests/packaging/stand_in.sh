#!/bin/bash
# Stands in for launchctl, vorlatchctl and other programs in maintainer_scripts_test.sh: behaves like the
# program whose name it has. Writes each call to $FAKE/record. $FAKE/loaded has a file for each loaded job.
# Each line of $FAKE/rules is a status or a deed, a blank, and the pattern of the calls that end so.
shopt -s extglob
PATH=/usr/bin:/bin
call="${0##*/} $*"
call=${call//"$VORLATCH_JBROOT"/ROOT}
[[ $call == sleep* ]] && exec sleep 0.01
printf '  %s\n' "$call" >>"$FAKE/record"
while read -r deed pattern; do
  # shellcheck disable=SC2053 # a pattern
  [[ $call == $pattern ]] || continue
  case $deed in
    kill) kill -KILL "$PPID" && exit 1 ;;
    hang)
      echo "$$" >"$FAKE/hung"
      sleep 60 &
      trap 'kill %1; echo "  interrupted" >>"$FAKE/record"; exit 3' TERM
      wait
      ;;
    hang-on) trap '' TERM && echo "$$" >"$FAKE/hung" && exec sleep 60 ;;
    *) exit "$deed" ;;
  esac
done <"$FAKE/rules"
# A job is named by its label or property list.
job=${!#}
job=${job##*/}
job=${job%.plist}
loaded() { [[ -e $FAKE/loaded/$job ]]; }
# Gone at the third look from now.
unloaded() { loaded && rm "$FAKE/loaded/$job" && printf '2\n' >"$FAKE/lingers.$job"; }
seen() {
  loaded && return
  local looks=0
  [[ ! -e $FAKE/lingers.$job ]] || looks=$(<"$FAKE/lingers.$job")
  ((looks > 0)) && printf '%d\n' "$((looks - 1))" >"$FAKE/lingers.$job"
}
key=$VORLATCH_JBROOT/var/mobile/Library/Preferences/com.zel.vorlatch.web.key
case $call in
  'launchctl bootstrap system '*)
    ! loaded || exit 37
    [[ -f $3 ]] || exit 5
    : >"$FAKE/loaded/$job"
    ;;
  'launchctl bootout system/com.zel.vorlatch'?(.web)) unloaded || exit 3 ;;
  'launchctl '@(print system/|list )com.zel.vorlatch?(.web)) seen || exit 113 ;;
  'launchctl load -w '*) [[ ! -f $3 ]] || : >"$FAKE/loaded/$job" ;;
  'launchctl unload '* | 'launchctl remove com.zel.vorlatch'?(.web)) unloaded || true ;;
  'vorlatchctl release --keep-preferences') [[ -e $FAKE/loaded/com.zel.vorlatch ]] || exit 3 ;;
  'vorlatchctl web')
    [[ -e $key ]] || printf 'new\n' >"$key" || exit 3
    printf 'http://127.0.0.1:8717/#key=%s\n' "$(<"$key")"
    ;;
  'chown -h 501:501 '*) ;;
  'rm -f '*) exec rm "$@" ;;
  *) echo "unexpected: $call" >>"$FAKE/record" ;;
esac
