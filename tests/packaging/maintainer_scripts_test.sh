#!/usr/bin/env bash
# Usage: maintainer_scripts_test.sh [SHELL]
#
# Has dpkg install, upgrade, remove and purge packages with the maintainer scripts in a throw-away root,
# where launchctl and vorlatchctl are programs that record how they are called and can be told to
# refuse, to hang, or to kill the script that calls them. Compares the whole record, what the
# scripts say, the package's state and the files left, under each of two shells. The last lines say how
# many checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

if (($# == 0)); then
  "$0" /bin/dash &
  "$0" '/bin/bash --posix' || failed=1
  wait $! || failed=1
  exit "$failed"
fi
shell=$1
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

# makePackage VERSION: makes a package whose scripts first note their arguments. $shell runs them, because
# this machine does not have the device's shell.
makePackage() {
  local version=$1 copy=$here/copy staging=$here/staging/var/jb script note
  rm -rf "$copy" "$here/staging"
  mkdir -p "$staging/usr/bin" "$staging/usr/libexec" "$staging/Library/LaunchDaemons"
  copyOfCheckout "$copy"
  cp "$fake" "$staging/usr/bin/vorlatchctl"
  printf '%s\n' "$version" >"$staging/usr/libexec/vorlatchd"
  cp "$checkout/packaging/$package.plist" "$staging/Library/LaunchDaemons"
  for script in "$copy"/packaging/debian/p*; do
    # shellcheck disable=SC2016 # for the script
    note="echo \"$version ${script##*/}:"'$(printf " <%s>" "$@")" >>"$FAKE/record"'
    sed -i "1c #!$shell\n$note" "$script"
  done
  makeIn "$copy" "$here/staging" "$version" "$here/$version.deb"
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

# In the order in which a purge names them; and files of others with similar names.
files_to_purge=("$package.plist" "$package.plist.tmp.aB3xYz" "$package.profile.at home.plist" "$package.profile.x.plist"
  "$package.profile.x.plist.tmp.aB3xYz" "$package.status.plist" "$package.status.plist.tmp.000000" Vorlatch.log
  Vorlatch.log.aside.0123456789abcdef0123456789abcdef "$package.plist.undo.10" "$package.plist.undo.9"
  "$package.plist.undo.9.tmp.aB3xYz")
theirs_to_keep=(com.other.plist "$package.plist.tmp.backups" "$package.plist.undo.9.backup" "$package.plist.undo."
  "$package.profile..plist")

# As the daemon and its user leave it.
writeFiles() {
  local file
  for file in "${theirs_to_keep[@]}" "${files_to_purge[@]}"; do
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
configured='1.0 postinst: <configure> <>'
will_start='! the daemon could not be started; it will be when the jailbreak next starts its daemons'
gone=$(lines "$look" "$look_again")
removing=$(lines '1.0 prerm: <remove>' "$release")
was_removed=$(lines '1.0 postrm: <remove>' "$gone")
# A daemon that goes is seen twice more.
stopped=$(lines "$stop" "$look" "$look" "$gone")
not_there=$(lines "$stop" "$unload" "$gone")
will_not_go=$(lines "$stop" "$unload" "$look" "$look" "$look" "$look" "$look")
restarted=$(lines "$stopped" "$bootstrap")
upgraded=$(lines '1.0 prerm: <upgrade> <2.0>' '1.0 postrm: <upgrade> <2.0>' '2.0 postinst: <configure> <1.0>')
removed=$(lines "$removing" "$stopped" "$was_removed")

makePackage 1.0
makePackage 2.0

installed() {
  begin "$1"
  run -i "$here/1.0.deb"
  writeFiles
}

# Each does it with rules for the programs: NAME OF THE STORY RULE...
install() {
  begin "$1"
  mkdir -p "$preferences"
  rules "${@:2}"
  run -i "$here/1.0.deb"
}
upgrade() {
  installed "$1"
  rules "${@:2}"
  run -i "$here/2.0.deb"
}
remove() {
  installed "$1"
  rules "${@:2}"
  run -r "$package"
}
# onceMore ARGUMENT OF DPKG...: without the rules.
onceMore() {
  scenario+=', and once more'
  rules
  run "$@"
}

theirs='./Library/LaunchDaemons/com.zel.vorlatch.plist'
programs=$(lines ./usr/bin/vorlatchctl ./usr/libexec/vorlatchd)
inPreferences() { printf './var/mobile/Library/Preferences/%s\n' "$@" | sort; }
settings=$(inPreferences "${files_to_purge[@]}" "${theirs_to_keep[@]}")
foreign=$(inPreferences "${theirs_to_keep[@]}")
purged="  rm -f$(printf ' ROOT/var/mobile/Library/Preferences/%s' "$package.plist" "$package.plist.released" \
  "${files_to_purge[@]:1}")"

expectKept() {
  expectFiles <<<"$theirs"$'\n'"$programs"$'\n'"$settings"
  check 'the settings as they were' 'of com.zel.vorlatch.plist' "$(cat "$preferences/$package.plist")"
  check 'the program' "$1" "$(cat "$VORLATCH_JBROOT/usr/libexec/vorlatchd")"
}

# A whole life.
begin 'install'
run -i "$here/1.0.deb"
expect 0 'installed 1.0' yes "$configured" '  chown -h 501:501 ROOT/var/mobile' \
  '  chown -h 501:501 ROOT/var/mobile/Library' '  chown -h 501:501 ROOT/var/mobile/Library/Preferences' \
  "$not_there" "$bootstrap"
expectFiles <<<"$theirs"$'\n'"$programs"
writeFiles

scenario+=', upgrade'
run -i "$here/2.0.deb"
expect 0 'installed 2.0' yes "$upgraded" "$restarted"
expectKept 2.0

scenario+=', remove'
run -r "$package"
expect 0 'config-files 2.0' no '2.0 prerm: <remove>' "$release" "$stopped" '2.0 postrm: <remove>' \
  "$look" "$look_again"
expectFiles <<<"$settings"

scenario+=', install again'
run -i "$here/1.0.deb"
expect 0 'installed 1.0' yes '1.0 postinst: <configure> <2.0>' "$not_there" "$bootstrap"
expectKept 1.0

scenario+=', purge'
echo aside >"$preferences/$package.plist.released"
run -P "$package"
expect 0 none no "$removed" '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$foreign"

# Installing fails.
install 'install, bootstrap refused' '5 launchctl bootstrap *'
expect 0 'installed 1.0' yes "$configured" "$not_there" "$bootstrap" "$load" "$look"

begin 'install, nothing starts it, nor can the directory be given to mobile'
rules '5 launchctl bootstrap *' '1 launchctl load *' '1 chown *'
run -i "$here/1.0.deb"
expect 0 'installed 1.0' no "$configured" '  chown -h 501:501 ROOT/var/mobile' \
  "$not_there" "$bootstrap" "$load" '! ROOT/var/mobile could not be made for the user mobile' "$will_start"

install 'install, load says that it loaded, and did not' '5 launchctl bootstrap *' '0 launchctl load *'
expect 0 'installed 1.0' no "$configured" "$not_there" "$bootstrap" "$load" "$gone" "$will_start"

begin 'install without launchctl'
mkdir -p "$preferences"
rm "$VORLATCH_JBROOT/usr/bin/launchctl"
run -i "$here/1.0.deb"
expect 0 'installed 1.0' no "$configured" "$will_start"

install 'install, killed half-way' 'kill launchctl bootstrap *'
expect 1 'half-configured 1.0' no "$configured" "$not_there" "$bootstrap"
onceMore --configure -a
expect 0 'installed 1.0' yes "$configured" "$not_there" "$bootstrap"

# Upgrading fails.
upgrade 'upgrade, bootout refused' '36 launchctl bootout *'
expect 0 'installed 2.0' yes "$upgraded" "$stop" "$unload" "$look" "$look" "$gone" "$bootstrap"
expectKept 2.0

upgrade 'upgrade, the daemon cannot be stopped' '36 launchctl bootout *' '1 launchctl unload *'
expect 0 'installed 2.0' yes "$upgraded" "$will_not_go" \
  '! the daemon that runs could not be stopped; it goes on until the device is restarted'
expectKept 2.0

# Removing fails.
remove 'remove, the release fails' '3 vorlatchctl *'
expect 0 'config-files 1.0' no "$removed" \
  '! not every target was handed back; they stay as they are until they end'
expectFiles <<<"$settings"

for deed in hang hang-on; do
  remove "remove, the release does not end ($deed)" "$deed vorlatchctl *"
  interrupted=$([[ $deed != hang ]] || printf '\n  interrupted')
  expect 0 'config-files 1.0' no "${removed/"$release"/"$release$interrupted"}" \
    '! not every target was handed back; they stay as they are until they end'
  check 'vorlatchctl is ended' no "$(kill -0 "$(<"$FAKE/hung")" 2>/dev/null && echo yes || echo no)"
done

remove 'remove, bootout refused' '36 launchctl bootout *'
expect 0 'config-files 1.0' no "$removing" "$stop" "$unload" "$look" "$look" "$gone" "$was_removed"

kept_on=$(lines "$removing" "$will_not_go" '1.0 postrm: <remove>' "$look" "$stop" \
  '  launchctl remove com.zel.vorlatch' '! the daemon could not be stopped yet')
remove 'remove, the daemon cannot be stopped before' '36 launchctl bootout *' '1 launchctl unload *'
expect 0 'config-files 1.0' no "$kept_on"

remove 'remove, the daemon cannot be stopped at all' '36 launchctl bootout *' '1 launchctl unload *' \
  '1 launchctl remove *'
expect 0 'config-files 1.0' yes "$kept_on" \
  '! the daemon could not be stopped; it ends with the next restart of the device'

remove 'remove, killed half-way, called off' 'kill vorlatchctl *'
expect 1 'installed 1.0' yes "$removing" '1.0 postinst: <abort-remove>' "$restarted"
expectKept 1.0
onceMore -r "$package"
expect 0 'config-files 1.0' no "$removed"
expectFiles <<<"$settings"

# Purging fails.
remove 'purge, killed half-way'
rules 'kill rm *'
run -P "$package"
expect 1 'config-files 1.0' no '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$settings"
onceMore -P "$package"
expect 0 none no '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$foreign"

remove 'purge, a file cannot be removed'
rm "$preferences/$package.status.plist"
mkdir "$preferences/$package.status.plist"
run -P "$package"
expect 0 none no '1.0 postrm: <purge>' "$purged" \
  '! not every file could be removed from ROOT/var/mobile/Library/Preferences'
expectFiles <<<"$foreign"

# say SCRIPT WORD...: runs a script as dpkg does when, for example, an upgrade is called off.
say() {
  : >"$FAKE/record"
  status=0
  ${shell} "$checkout/packaging/debian/$1" "${@:2}" </dev/null >"$here/output" 2>&1 || status=$?
}
for words in 'abort-upgrade 2.0' 'abort-remove' 'abort-deconfigure in-favour other 1.0'; do
  installed "$words"
  # shellcheck disable=SC2086 # words
  say postinst $words
  check 'the daemon is restarted' "0 $restarted" "$status $(cat "$here/output" "$FAKE/record")"
done
begin 'words that ask nothing of a script'
for words in 'postinst triggered' 'prerm upgrade 2.0' 'prerm failed-upgrade 1.0 2.0' \
  'prerm deconfigure in-favour other 1.0' 'postrm upgrade 2.0' 'postrm failed-upgrade 1.0 2.0' \
  'postrm abort-install' 'postrm abort-upgrade 1.0 2.0' 'postrm disappear other 1.0' postinst prerm postrm; do
  # shellcheck disable=SC2086 # words
  say $words
  check "$words" '0 ' "$status $(cat "$here/output" "$FAKE/record")"
done

summary
