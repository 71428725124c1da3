# shellcheck shell=bash
# What happens to the package on a device, story by story; sourced by maintainer_scripts_test.sh.

# installed NAME OF THE STORY [SCRIPT THAT BREAKS]
installed() {
  begin "$1"
  run -i "$here/1.0${2:+-$2}.deb"
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
settings=$(printf './var/mobile/Library/Preferences/%s\n' Vorlatch.log \
  Vorlatch.log.aside.0123456789abcdef0123456789abcdef com.other.plist "$package.plist" \
  "$package.plist.backup" "$package.plist.tmp.aB3xYz" "$package.status.plist" "$package.status.plist.tmp.000000")
foreign=$(printf './var/mobile/Library/Preferences/%s\n' com.other.plist "$package.plist.backup")
purged="  rm -f$(printf ' ROOT/var/mobile/Library/Preferences/%s' "$package.plist" "$package.plist.released" \
  "$package.plist.tmp.aB3xYz" "$package.status.plist" "$package.status.plist.tmp.000000" Vorlatch.log \
  Vorlatch.log.aside.0123456789abcdef0123456789abcdef)"

expectKept() {
  expectFiles <<<"$theirs"$'\n'"$programs"$'\n'"$settings"
  check 'the settings as they were' 'of com.zel.vorlatch.plist' "$(cat "$preferences/$package.plist")"
  check 'the program' "$1" "$(cat "$VORLATCH_JBROOT/usr/libexec/vorlatchd")"
}

wholeLife() {
  begin 'install'
  run -i "$here/1.0.deb"
  expect 0 'installed 1.0' yes '1.0 postinst: <configure> <>' '  chown -h 501:501 ROOT/var/mobile' \
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
  expect 0 none no '1.0 prerm: <remove>' "$release" "$stopped" '1.0 postrm: <remove>' "$look" \
    "$look_again" '1.0 postrm: <purge>' "$purged"
  expectFiles <<<"$foreign"
}

installFailures() {
  install 'install, bootstrap refused' '5 launchctl bootstrap *'
  expect 0 'installed 1.0' yes '1.0 postinst: <configure> <>' "$not_there" "$bootstrap" "$load" "$look"

  begin 'install, nothing starts it, nor can the directory be given to mobile'
  rules '5 launchctl bootstrap *' '1 launchctl load *' '1 chown *'
  run -i "$here/1.0.deb"
  expect 0 'installed 1.0' no '1.0 postinst: <configure> <>' '  chown -h 501:501 ROOT/var/mobile' \
    "$not_there" "$bootstrap" "$load" '! ROOT/var/mobile could not be made for the user mobile' \
    '! the daemon could not be started; it will be when the jailbreak next starts its daemons'

  install 'install, load says that it loaded, and did not' '5 launchctl bootstrap *' '0 launchctl load *'
  expect 0 'installed 1.0' no '1.0 postinst: <configure> <>' "$not_there" "$bootstrap" "$load" "$look" \
    "$look_again" \
    '! the daemon could not be started; it will be when the jailbreak next starts its daemons'

  begin 'install without launchctl'
  mkdir -p "$preferences"
  rm "$VORLATCH_JBROOT/usr/bin/launchctl"
  run -i "$here/1.0.deb"
  expect 0 'installed 1.0' no '1.0 postinst: <configure> <>' \
    '! the daemon could not be started; it will be when the jailbreak next starts its daemons'

  install 'install, killed half-way' 'kill launchctl bootstrap *'
  expect 1 'half-configured 1.0' no '1.0 postinst: <configure> <>' "$not_there" "$bootstrap"
  onceMore --configure -a
  expect 0 'installed 1.0' yes '1.0 postinst: <configure> <>' "$not_there" "$bootstrap"

  begin 'install called off'
  run -i "$here/1.0-preinst.deb"
  expect 1 'not-installed ' no '1.0 preinst: <install>' '1.0 postrm: <abort-install>'
  expectFiles </dev/null
}

upgradeFailures() {
  upgrade 'upgrade, bootout refused' '36 launchctl bootout *'
  expect 0 'installed 2.0' yes "$upgraded" "$stop" "$unload" "$look" "$look" "$look" "$look_again" \
    "$bootstrap"
  expectKept 2.0

  upgrade 'upgrade, the daemon cannot be stopped' '36 launchctl bootout *' '1 launchctl unload *'
  expect 0 'installed 2.0' yes "$upgraded" "$will_not_go" \
    '! the daemon that runs could not be stopped; it goes on until the device is restarted'
  expectKept 2.0

  upgrade 'upgrade, killed half-way' 'kill launchctl bootstrap *'
  expect 1 'half-configured 2.0' no "$upgraded" "$restarted"
  expectKept 2.0
  onceMore --configure -a
  expect 0 'installed 2.0' yes '2.0 postinst: <configure> <1.0>' "$not_there" "$bootstrap"
  expectKept 2.0

  installed 'upgrade called off by the new package'
  run -i "$here/2.0-preinst.deb"
  expect 1 'installed 1.0' yes '1.0 prerm: <upgrade> <2.0>' '2.0 preinst: <upgrade> <1.0> <2.0>' \
    '2.0 postrm: <abort-upgrade> <1.0> <2.0>' '1.0 postinst: <abort-upgrade> <2.0>' "$restarted"
  expectKept 1.0

  local breaking
  for breaking in prerm postrm; do
    installed "upgrade, the old $breaking breaks" "$breaking"
    run -i "$here/2.0.deb"
    expect 0 'installed 2.0' yes '1.0 prerm: <upgrade> <2.0>' \
      "$([[ $breaking != prerm ]] || echo '2.0 prerm: <failed-upgrade> <1.0> <2.0>')" \
      '1.0 postrm: <upgrade> <2.0>' \
      "$([[ $breaking != postrm ]] || echo '2.0 postrm: <failed-upgrade> <1.0> <2.0>')" \
      '2.0 postinst: <configure> <1.0>' "$restarted"
    expectKept 2.0
  done
}

removeFailures() {
  remove 'remove, the release fails' '3 vorlatchctl *'
  expect 0 'config-files 1.0' no "$removed" \
    '! not every target was handed back; they stay as they are until they end'
  expectFiles <<<"$settings"

  local deed interrupted
  for deed in hang hang-on; do
    remove "remove, the release does not end ($deed)" "$deed vorlatchctl *"
    interrupted=$([[ $deed != hang ]] || printf '\n  interrupted')
    expect 0 'config-files 1.0' no "${removed/"$release"/"$release$interrupted"}" \
      '! not every target was handed back; they stay as they are until they end'
    check 'vorlatchctl is ended' no "$(kill -0 "$(<"$FAKE/hung")" 2>/dev/null && echo yes || echo no)"
  done

  remove 'remove, bootout refused' '36 launchctl bootout *'
  expect 0 'config-files 1.0' no '1.0 prerm: <remove>' "$release" "$stop" "$unload" "$look" "$look" \
    "$look" "$look_again" '1.0 postrm: <remove>' "$look" "$look_again"

  remove 'remove, the daemon cannot be stopped before' '36 launchctl bootout *' '1 launchctl unload *'
  expect 0 'config-files 1.0' no '1.0 prerm: <remove>' "$release" "$will_not_go" '1.0 postrm: <remove>' \
    "$look" "$stop" '  launchctl remove com.zel.vorlatch' '! the daemon could not be stopped yet'

  remove 'remove, the daemon cannot be stopped at all' '36 launchctl bootout *' '1 launchctl unload *' \
    '1 launchctl remove *'
  expect 0 'config-files 1.0' yes '1.0 prerm: <remove>' "$release" "$will_not_go" '1.0 postrm: <remove>' \
    "$look" "$stop" '  launchctl remove com.zel.vorlatch' '! the daemon could not be stopped yet' \
    '! the daemon could not be stopped; it ends with the next restart of the device'

  remove 'remove, killed half-way' 'kill launchctl bootout *'
  # The script that then starts it again is killed by the same call.
  expect 1 'half-configured 1.0' yes '1.0 prerm: <remove>' "$release" "$stop" \
    '1.0 postinst: <abort-remove>' "$stop"
  expectKept 1.0

  remove 'remove, killed half-way, called off' 'kill vorlatchctl *'
  expect 1 'installed 1.0' yes '1.0 prerm: <remove>' "$release" '1.0 postinst: <abort-remove>' "$restarted"
  expectKept 1.0
  onceMore -r "$package"
  expect 0 'config-files 1.0' no "$removed"
  expectFiles <<<"$settings"
}

purgeFailures() {
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
}

# A word that dpkg says to a script and that asks nothing of it.
otherWords() {
  begin 'other words'
  local script word
  for script in postinst prerm postrm; do
    for word in '' triggered 'deconfigure in-favour other 1.0' 'disappear other 1.0' \
      'failed-upgrade 1.0 2.0'; do
      status=0
      # shellcheck disable=SC2086 # words
      ${shell} "$checkout/packaging/debian/$script" $word </dev/null >"$here/output" 2>&1 || status=$?
      check "$script $word" '0 ' "$status $(cat "$here/output" "$FAKE/record")"
    done
  done
}

tellStories() {
  wholeLife
  installFailures
  upgradeFailures
  removeFailures
  purgeFailures
  otherWords
}
