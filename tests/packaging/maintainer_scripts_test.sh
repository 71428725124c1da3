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

fake=$checkout/tests/packaging/stand_in.sh

# makePackage VERSION: makes a package whose scripts first note their arguments. $shell runs them, because
# this machine does not have the device's shell.
makePackage() {
  local version=$1 copy=$here/copy staging=$here/staging/var/jb script note
  rm -rf "$copy" "$here/staging"
  mkdir -p "$staging/usr/bin" "$staging/usr/libexec" "$staging/Library/LaunchDaemons"
  copyOfCheckout "$copy"
  cp "$fake" "$staging/usr/bin/vorlatchctl"
  printf '%s\n' "$version" >"$staging/usr/libexec/vorlatchd"
  cp "$checkout/packaging/$package"{,.web}.plist "$staging/Library/LaunchDaemons"
  for script in "$copy"/packaging/debian/p*; do
    # shellcheck disable=SC2016 # for the script
    note="echo \"$version ${script##*/}:"'$(printf " <%s>" "$@")" >>"$FAKE/record"'
    sed -i "1c #!$shell\n$note" "$script"
    # A version that has no page, whose scripts do nothing else.
    [[ $version != 0.9 ]] || sed -i '3,$d' "$script"
  done
  [[ $version != 0.9 ]] || rm "$staging/Library/LaunchDaemons/$package.web.plist"
  makeIn "$copy" "$here/staging" "$version" "$here/$version.deb"
}

# A device where nothing of the package is; FAKE is outside its root.
begin() {
  scenario="${shell##*/}: $1"
  rm -rf "$here/device" "$here/admin" "$here/state"
  mkdir -p "$here/device/var/jb/usr/bin" "$here/device/var/jb/Library/LaunchDaemons" \
    "$here/admin/updates" "$here/admin/info" "$here/state/loaded"
  touch "$here/admin/status" "$here/admin/available" "$here/state/rules" "$here/state/record"
  export FAKE=$here/state VORLATCH_JBROOT=$here/device/var/jb
  preferences=$VORLATCH_JBROOT/var/mobile/Library/Preferences
  local program
  for program in launchctl chown sleep rm; do cp "$fake" "$VORLATCH_JBROOT/usr/bin/$program"; done
}

rules() { printf '%s\n' "$@" >"$FAKE/rules"; }

# In the order in which a purge names them; and files of others with similar names.
files_to_purge=("$package.plist" "$package.plist.tmp.aB3xYz" "$package.profile.at home.plist" "$package.profile.x.plist"
  "$package.profile.x.plist.tmp.aB3xYz" "$package.status.plist" "$package.status.plist.tmp.000000"
  "$package.web.key" "$package.web.key.tmp.aB3xYz" Vorlatch.log
  Vorlatch.log.aside.0123456789abcdef0123456789abcdef "$package.plist.undo.10" "$package.plist.undo.9"
  "$package.plist.undo.9.tmp.aB3xYz")
theirs_to_keep=(com.other.plist "$package.plist.tmp.backups" "$package.plist.undo.9.backup" "$package.plist.undo."
  "$package.profile..plist" "$package.web.key.backup")

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

# expect STATUS OF DPKG, STATE OF THE PACKAGE, LOADED JOBS, LINE...: the lines are the record, and behind
# "! " what the scripts said, and behind "> " the address of the page. Nothing may stand outside the jailbreak
# root.
expect() {
  local state is_loaded
  state=$(dpkg-query --admindir="$here/admin" -W -f '${db:Status-Status} ${Version}' "$package" \
    2>/dev/null || echo none)
  is_loaded=$(cd "$FAKE/loaded" && echo *)
  case $is_loaded in
    "$package $package.web") is_loaded=both ;;
    "$package.web") is_loaded=page ;;
    "$package") is_loaded=daemon ;;
    '*') is_loaded=none ;;
  esac
  check 'state and record' "$(lines "$1, $2, loaded: $3" device/var device/var/jb "${@:4}" | grep .)" \
    "$((status != 0)), $state, loaded: $is_loaded
$(cd "$here" && find device -mindepth 1 -maxdepth 2 | sort)
$(cat "$FAKE/record" && sed -n "s,$VORLATCH_JBROOT,ROOT,; s/^$package: /! /p; s/^http/> &/p" \
      "$here/output")"
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
web='  vorlatchctl web'
lines() { printf '%s\n' "$@"; }
# The same for the job of the page; for one job after the other.
ofPage() { lines "${@//$package/$package.web}"; }
both() { lines "$@" && ofPage "$@"; }
configured='1.0 postinst: <configure> <>'
cannot_start='could not be started; it will be when the jailbreak next starts its daemons'
no_address='! the address of the page could not be printed; the command vorlatchctl web prints it'
new_address='> http://127.0.0.1:8717/#key=new'
address="> http://127.0.0.1:8717/#key=of $package.web.key"
gone=$(lines "$look" "$look_again")
# A program that ends is seen twice more.
stopped=$(lines "$stop" "$look" "$look" "$gone")
not_there=$(lines "$stop" "$unload" "$gone")
will_not_go=$(lines "$stop" "$unload" "$look" "$look" "$look" "$look" "$look")
unload_helps=$(lines "$stop" "$unload" "$look" "$look" "$gone")
will_go_later=$(lines "$look" "$stop" '  launchctl remove com.zel.vorlatch')
started=$(lines "$not_there" "$bootstrap")
restarted=$(lines "$stopped" "$bootstrap")
removing=$(lines '1.0 prerm: <remove>' "$release")
was_removed=$(lines '1.0 postrm: <remove>' "$(both "$gone")")
upgraded=$(lines '1.0 prerm: <upgrade> <2.0>' '1.0 postrm: <upgrade> <2.0>' '2.0 postinst: <configure> <1.0>')
removed=$(lines "$removing" "$(both "$stopped")" "$was_removed")

makePackage 0.9
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

theirs=$(lines ./Library/LaunchDaemons/com.zel.vorlatch{,.web}.plist)
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
expect 0 'installed 1.0' both "$configured" '  chown -h 501:501 ROOT/var/mobile' \
  '  chown -h 501:501 ROOT/var/mobile/Library' '  chown -h 501:501 ROOT/var/mobile/Library/Preferences' \
  "$(both "$started")" "$web" "$new_address"
expectFiles <<<"$theirs"$'\n'"$programs"$'\n'"$(inPreferences "$package.web.key")"
writeFiles

scenario+=', upgrade'
run -i "$here/2.0.deb"
expect 0 'installed 2.0' both "$upgraded" "$(both "$restarted")" "$web" "$address"
expectKept 2.0

scenario+=', remove'
run -r "$package"
expect 0 'config-files 2.0' none '2.0 prerm: <remove>' "$release" "$(both "$stopped")" \
  '2.0 postrm: <remove>' "$(both "$gone")"
expectFiles <<<"$settings"

scenario+=', install again'
run -i "$here/1.0.deb"
expect 0 'installed 1.0' both '1.0 postinst: <configure> <2.0>' "$(both "$started")" "$web" "$address"
expectKept 1.0

scenario+=', purge'
echo aside >"$preferences/$package.plist.released"
run -P "$package"
expect 0 none none "$removed" '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$foreign"

begin 'upgrade from a version without the page'
mkdir -p "$preferences"
run -i "$here/0.9.deb"
: >"$FAKE/loaded/$package"
run -i "$here/1.0.deb"
expect 0 'installed 1.0' both '0.9 prerm: <upgrade> <1.0>' '0.9 postrm: <upgrade> <1.0>' \
  '1.0 postinst: <configure> <0.9>' "$restarted" "$(ofPage "$started")" "$web" "$new_address"

# Installing fails.
install 'install, bootstrap refused' '5 launchctl bootstrap *'
expect 0 'installed 1.0' both "$configured" "$(both "$started" "$load" "$look")" "$web" "$new_address"

begin 'install, nothing starts, nor can the directory be given to mobile'
rules '5 launchctl bootstrap *' '1 launchctl load *' '1 chown *'
run -i "$here/1.0.deb"
expect 0 'installed 1.0' none "$configured" '  chown -h 501:501 ROOT/var/mobile' \
  "$(both "$started" "$load")" "$web" '! ROOT/var/mobile could not be made for the user mobile' \
  "! the daemon $cannot_start" "! the page's server $cannot_start" "$no_address"

install 'install, load says that it loaded, and did not' '5 launchctl bootstrap *' '0 launchctl load *'
expect 0 'installed 1.0' none "$configured" "$(both "$started" "$load" "$gone")" "$web" \
  "! the daemon $cannot_start" "! the page's server $cannot_start" "$new_address"

install 'install, no key can be made' '3 vorlatchctl web'
expect 0 'installed 1.0' both "$configured" "$(both "$started")" "$web" "$no_address"

begin 'install without launchctl'
mkdir -p "$preferences"
rm "$VORLATCH_JBROOT/usr/bin/launchctl"
run -i "$here/1.0.deb"
expect 0 'installed 1.0' none "$configured" "$web" "! the daemon $cannot_start" \
  "! the page's server $cannot_start" "$new_address"

install 'install, killed half-way' 'kill launchctl bootstrap *.web.plist'
expect 1 'half-configured 1.0' daemon "$configured" "$(both "$started")"
onceMore --configure -a
expect 0 'installed 1.0' both "$configured" "$restarted" "$(ofPage "$started")" "$web" "$new_address"

# Upgrading fails.
upgrade 'upgrade, bootout refused' '36 launchctl bootout *'
expect 0 'installed 2.0' both "$upgraded" "$(both "$unload_helps" "$bootstrap")" "$web" "$address"
expectKept 2.0

# Removing fails.
remove 'remove, the release fails' '3 vorlatchctl *'
expect 0 'config-files 1.0' none "$removed" \
  '! not every target was handed back; they stay as they are until they end'
expectFiles <<<"$settings"

for deed in hang hang-on; do
  remove "remove, the release does not end ($deed)" "$deed vorlatchctl *"
  interrupted=$([[ $deed != hang ]] || printf '\n  interrupted')
  expect 0 'config-files 1.0' none "${removed/"$release"/"$release$interrupted"}" \
    '! not every target was handed back; they stay as they are until they end'
  check 'vorlatchctl is ended' no "$(kill -0 "$(<"$FAKE/hung")" 2>/dev/null && echo yes || echo no)"
done

remove 'remove, bootout refused' '36 launchctl bootout *'
expect 0 'config-files 1.0' none "$removing" "$(both "$unload_helps")" "$was_removed"

remove 'remove, killed half-way, called off' 'kill vorlatchctl *'
expect 1 'installed 1.0' both "$removing" '1.0 postinst: <abort-remove>' "$(both "$restarted")"
expectKept 1.0
onceMore -r "$package"
expect 0 'config-files 1.0' none "$removed"
expectFiles <<<"$settings"

# One job fails, the other does not.
for failing in "$package" "$package.web"; do
  if [[ $failing == "$package" ]]; then
    name='the daemon' fails=daemon works=page
    # inTurn FAILING WORKING: what is done to both jobs.
    inTurn() { lines "$1" && ofPage "$2"; }
  else
    name="the page's server" fails=page works=daemon
    inTurn() { lines "$2" && ofPage "$1"; }
  fi
  will_not_stop=("36 launchctl bootout *$failing" "1 launchctl unload *$failing.plist")

  install "install, $name cannot be started" "5 launchctl bootstrap *$failing.plist" \
    "1 launchctl load *$failing.plist"
  expect 0 'installed 1.0' "$works" "$configured" "$(inTurn "$started"$'\n'"$load" "$started")" "$web" \
    "! $name $cannot_start" "$new_address"

  upgrade "upgrade, $name cannot be stopped" "${will_not_stop[@]}"
  expect 0 'installed 2.0' both "$upgraded" "$(inTurn "$will_not_go" "$restarted")" "$web" \
    "! $name that runs could not be stopped; it goes on until the device is restarted" "$address"
  expectKept 2.0

  kept_on=$(lines "$removing" "$(inTurn "$will_not_go" "$stopped")" '1.0 postrm: <remove>' \
    "$(inTurn "$will_go_later" "$gone")" "! $name could not be stopped yet")
  remove "remove, $name cannot be stopped before" "${will_not_stop[@]}"
  expect 0 'config-files 1.0' none "$kept_on"

  remove "remove, $name cannot be stopped at all" "${will_not_stop[@]}" "1 launchctl remove *$failing"
  expect 0 'config-files 1.0' "$fails" "$kept_on" \
    "! $name could not be stopped; it ends with the next restart of the device"
done

# Purging fails.
remove 'purge, killed half-way'
rules 'kill rm *'
run -P "$package"
expect 1 'config-files 1.0' none '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$settings"
onceMore -P "$package"
expect 0 none none '1.0 postrm: <purge>' "$purged"
expectFiles <<<"$foreign"

remove 'purge, a file cannot be removed'
rm "$preferences/$package.status.plist"
mkdir "$preferences/$package.status.plist"
run -P "$package"
expect 0 none none '1.0 postrm: <purge>' "$purged" \
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
  check 'both jobs are restarted' "0 $(both "$restarted")" "$status $(cat "$here/output" "$FAKE/record")"
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
