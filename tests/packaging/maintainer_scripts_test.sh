#!/usr/bin/env bash
# Usage: maintainer_scripts_test.sh
#
# Has dpkg install, upgrade, remove and purge packages with the maintainer scripts in a throw-away root,
# where launchctl and vorlatchctl are programs that record how they are called and can be told to
# refuse, to hang, or to kill the script that calls them. Compares the whole record, what the
# scripts say, the package's state and the files left, under each of two shells. The last lines say how
# many checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

export SOURCE_DATE_EPOCH=1700000000
package=com.zel.vorlatch

# The stand-in for every program. Each line of $FAKE/rules is a status or a deed, a blank, and the
# pattern of a call.
fake=$here/fake
cat >"$fake" <<'FAKE'
#!/bin/bash
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
loaded() { [[ -e $FAKE/loaded ]]; }
# Gone at the third look from now.
unloaded() { loaded && rm "$FAKE/loaded" && printf '2\n' >"$FAKE/lingers"; }
seen() {
  loaded && return
  local looks=0
  [[ ! -e $FAKE/lingers ]] || looks=$(<"$FAKE/lingers")
  ((looks > 0)) && printf '%d\n' "$((looks - 1))" >"$FAKE/lingers"
}
case $call in
  'launchctl bootstrap system '*)
    ! loaded || exit 37
    [[ -f $3 ]] || exit 5
    : >"$FAKE/loaded"
    ;;
  'launchctl bootout system/com.zel.vorlatch') unloaded || exit 3 ;;
  'launchctl print system/com.zel.vorlatch' | 'launchctl list com.zel.vorlatch') seen || exit 113 ;;
  'launchctl load -w '*) [[ ! -f $3 ]] || : >"$FAKE/loaded" ;;
  'launchctl unload '* | 'launchctl remove com.zel.vorlatch') unloaded || true ;;
  'vorlatchctl release --keep-preferences') loaded || exit 3 ;;
  'chown -h 501:501 '*) ;;
  'rm -f '*) exec rm "$@" ;;
  *) echo "unexpected: $call" >>"$FAKE/record" ;;
esac
FAKE
chmod +x "$fake"

# makePackage SHELL VERSION [BREAKING SCRIPT]: with scripts that note their arguments first and are run by
# SHELL, as the device's is not here. One that breaks does so at its end.
makePackage() {
  local interpreter=$1 version=$2 breaking=${3-} copy=$here/copy staging=$here/staging/var/jb script note
  rm -rf "$copy" "$here/staging"
  mkdir -p "$staging/usr/bin" "$staging/usr/libexec" "$staging/Library/LaunchDaemons"
  copyOfCheckout "$copy"
  cp "$fake" "$staging/usr/bin/vorlatchctl"
  printf '%s\n' "$version" >"$staging/usr/libexec/vorlatchd"
  cp "$checkout/packaging/$package.plist" "$staging/Library/LaunchDaemons"
  [[ $breaking != preinst ]] || printf '#!/var/jb/bin/sh\nexit 0\n' >"$copy/packaging/debian/preinst"
  for script in "$copy"/packaging/debian/p*; do
    # shellcheck disable=SC2016 # for the script
    note="echo \"$version ${script##*/}:"'$(printf " <%s>" "$@")" >>"$FAKE/record"'
    sed -i "1c #!$interpreter\n$note" "$script"
    [[ ${script##*/} != "$breaking" ]] || sed -i 's/^exit 0$/exit 1/' "$script"
  done
  makeIn "$copy" "$here/staging" "$version" "$here/$version${breaking:+-$breaking}.deb"
}

# A device where nothing of the package is; FAKE is outside its root.
begin() {
  scenario="${shell##*/}: $1"
  rm -rf "$here/device" "$here/admin" "$here/state"
  mkdir -p "$here/device/var/jb/usr/bin" "$here/device/var/jb/Library/LaunchDaemons" \
    "$here/admin/updates" "$here/admin/info" "$here/state"
  touch "$here/admin/status" "$here/admin/available" "$here/state/rules" "$here/state/record"
  export FAKE=$here/state VORLATCH_JBROOT=$here/device/var/jb
  preferences=$VORLATCH_JBROOT/var/mobile/Library/Preferences
  local program
  for program in launchctl chown sleep rm; do cp "$fake" "$VORLATCH_JBROOT/usr/bin/$program"; done
}

rules() { printf '%s\n' "$@" >"$FAKE/rules"; }

# As the daemon and its user leave it.
writeFiles() {
  local file
  for file in $package.plist $package.plist.backup $package.plist.tmp.aB3xYz $package.status.plist \
    $package.status.plist.tmp.000000 Vorlatch.log com.other.plist \
    Vorlatch.log.aside.0123456789abcdef0123456789abcdef; do
    printf 'of %s\n' "$file" >"$preferences/$file"
  done
}

# run ARGUMENT OF DPKG...: begins a new record.
run() {
  : >"$FAKE/record"
  status=0
  dpkg --root="$here/device" --admindir="$here/admin" --log=/dev/null --no-triggers \
    --force-architecture,depends,not-root,script-chrootless,bad-path,unsafe-io --auto-deconfigure \
    "$@" >"$here/output" 2>&1 </dev/null || status=$?
}

# expect STATUS OF DPKG, STATE OF THE PACKAGE, WHETHER IT IS LOADED, LINE...: the lines are the record, and
# behind "! " what the scripts said. Nothing may stand outside the jailbreak root.
expect() {
  local state is_loaded
  state=$(dpkg-query --admindir="$here/admin" -W -f '${db:Status-Status} ${Version}' "$package" \
    2>/dev/null || echo none)
  is_loaded=$([[ -e $FAKE/loaded ]] && echo yes || echo no)
  check 'state and record' "$(lines "$1, $2, loaded: $3" device/var device/var/jb "${@:4}" | grep .)" \
    "$((status != 0)), $state, loaded: $is_loaded
$(cd "$here" && find device -mindepth 1 -maxdepth 2 | sort)
$(cat "$FAKE/record" && sed -n "s,$VORLATCH_JBROOT,ROOT,; s/^$package: /! /p" "$here/output")"
}

files() { (cd "$VORLATCH_JBROOT" && find "$@" ! -type d | sort); }
expectFiles() { check 'files' "$(cat)" "$(files . | grep -v '^./usr/bin/\(launchctl\|chown\|sleep\|rm\)$' || true)"; }

stop='  launchctl bootout system/com.zel.vorlatch'
look='  launchctl print system/com.zel.vorlatch'
look_again='  launchctl list com.zel.vorlatch'
unload='  launchctl unload ROOT/Library/LaunchDaemons/com.zel.vorlatch.plist'
bootstrap='  launchctl bootstrap system ROOT/Library/LaunchDaemons/com.zel.vorlatch.plist'
load='  launchctl load -w ROOT/Library/LaunchDaemons/com.zel.vorlatch.plist'
release='  vorlatchctl release --keep-preferences'
lines() { printf '%s\n' "$@"; }
# A daemon that goes is seen twice more.
stopped=$(lines "$stop" "$look" "$look" "$look" "$look_again")
not_there=$(lines "$stop" "$unload" "$look" "$look_again")
will_not_go=$(lines "$stop" "$unload" "$look" "$look" "$look" "$look" "$look")
restarted=$(lines "$stopped" "$bootstrap")
upgraded=$(lines '1.0 prerm: <upgrade> <2.0>' '1.0 postrm: <upgrade> <2.0>' '2.0 postinst: <configure> <1.0>')
removed=$(lines '1.0 prerm: <remove>' "$release" "$stopped" '1.0 postrm: <remove>' "$look" "$look_again")

# shellcheck source=tests/packaging/maintainer_stories.sh
source "$(dirname "${BASH_SOURCE[0]}")/maintainer_stories.sh"

runs=()
for shell in /bin/dash '/bin/bash --posix'; do
  here=$(mktemp -d -p "$here")
  {
    for version in 1.0 2.0 '1.0 preinst' '2.0 preinst' '1.0 prerm' '1.0 postrm'; do
      # shellcheck disable=SC2086 # words
      makePackage "$shell" $version
    done
    tellStories
    summary
  } &
  runs+=($!)
  here=${here%/*}
done
for run in "${runs[@]}"; do wait "$run" || failed=1; done
((failed == 0))
