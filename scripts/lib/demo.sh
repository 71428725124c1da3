# shellcheck shell=bash
# Runs targets and a daemon in a jailbreak root; sourced by scripts/run.

# File names, which are also the process names; WeChat is the executable of an app bundle.
target_names=(SpringBoard backboardd dasd kbd runningboardd sharingd WeChat)
# Process ids by target name.
declare -A target_pids=()
daemon_pid=0
log_lines_seen=0

prepareDemo() {
  jbroot=$root/build/jbroot
  mkdir -p "$root/build"
  exec 8>"$jbroot.lock"
  flock --nonblock 8 || die "another run holds $jbroot.lock; end that run first"
  log=$jbroot/var/mobile/Library/Preferences/Vorlatch.log
  rm -rf "${jbroot:?}/var" "$jbroot/targets" "$jbroot/Applications"
  quietly "$jbroot.log" cmake --install "$root/build/release" --prefix "$jbroot" ||
    die "the build cannot be installed"
  mkdir -p "$jbroot/targets"
  local name
  for name in "${target_names[@]}"; do
    install -D "$root/build/release/tests/idler" "$(targetPath "$name")"
  done
  cat >"$jbroot/Applications/WeChat.app/Info.plist" <<'PLIST'
<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0">
<dict>
	<key>CFBundleExecutable</key>
	<string>WeChat</string>
	<key>CFBundleIdentifier</key>
	<string>com.tencent.xin</string>
</dict>
</plist>
PLIST
}

targetPath() {
  if [[ $1 == WeChat ]]; then
    printf '%s\n' "$jbroot/Applications/WeChat.app/WeChat"
  else
    printf '%s\n' "$jbroot/targets/$1"
  fi
}

# await SECONDS WHAT COMMAND...: waits until the command succeeds; fails with a message about WHAT.
await() {
  local deadline=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    ((SECONDS < deadline)) || die "timed out waiting for $what"
    sleep 0.02
  done
}

runsAs() { [[ $(cat "/proc/$1/comm" 2>/dev/null) == "$2" ]]; }

# The process ends with this script, even if this script is killed. It does not inherit the lock's
# descriptor, because a target that survived would keep the lock.
startProcess() { setpriv --pdeathsig KILL "$1" </dev/null >/dev/null 2>&1 8>&- & }

startTarget() {
  startProcess "$(targetPath "$1")"
  target_pids[$1]=$!
  await 5 "$1 to run" runsAs "${target_pids[$1]}" "$1"
}

startTargets() {
  local name
  for name in "${target_names[@]}"; do startTarget "$name"; done
}

stopProcess() {
  kill -KILL "$1" 2>/dev/null || true
  wait "$1" 2>/dev/null || true
}

stopTarget() {
  stopProcess "${target_pids[$1]}"
  unset "target_pids[$1]"
}

startDaemon() {
  startProcess "$jbroot/usr/libexec/vorlatchd"
  daemon_pid=$!
  await 5 "the daemon's log" test -s "$log"
}

# Shows the command line, then runs vorlatchctl.
control() {
  say "\$ vorlatchctl $*"
  "$jbroot/usr/bin/vorlatchctl" "$@"
}

# Ends all jobs of this script by process id: targets, daemon, and the view of the log.
endDemo() {
  local pid
  trap '' INT TERM HUP
  for pid in $(jobs -p); do stopProcess "$pid"; done
}

newLogHas() { tail -n "+$((log_lines_seen + 1))" "$log" | grep -E "$1" >/dev/null; }

# Waits for a log line that matches and is newer than the last one awaited.
awaitLog() {
  await 10 "the log line \"$1\"" newLogHas "$1"
  log_lines_seen=$(wc -l <"$log")
}

sayWhatIsRefused() {
  mayLowerNiceValues ||
    say "Without root's rights nice values below 0 are refused here; the log shows each refusal."
}

# Writes the script jbroot/enter, which runs a command, or a shell that completes vorlatchctl's words,
# in the targets' namespaces: outside, the targets have different process ids than the daemon sees.
writeEnter() {
  local enter=$jbroot/enter within=()
  if [[ -n ${VORLATCH_RUN_INSIDE-} ]]; then
    local namespaces=/proc/$VORLATCH_RUN_INSIDE/ns
    within=(nsenter "--mount=$namespaces/mnt" "--pid=$namespaces/pid_for_children")
    ((EUID == 0)) || within+=("--user=$namespaces/user" --preserve-credentials)
  fi
  within+=(env -C "$jbroot" "PATH=$jbroot/usr/bin:$PATH")
  cat >"$jbroot/shellrc" <<SHELLRC
[[ ! -r ~/.bashrc ]] || source ~/.bashrc
PATH=$(printf %q "$jbroot/usr/bin"):\$PATH
source $(printf %q "$jbroot/usr/share/bash-completion/completions/vorlatchctl")
SHELLRC
  cat >"$enter" <<ENTER
#!/usr/bin/env bash
((\$# > 0)) || set -- bash --rcfile ${jbroot@Q}/shellrc -i
exec ${within[*]@Q} "\$@"
ENTER
  chmod +x "$enter"
}

# Prints the address of the page, and serves it.
servePage() {
  setpriv --pdeathsig KILL "$jbroot/usr/bin/vorlatchctl" web </dev/null 8>&- &
}

stayInView() {
  writeEnter
  startDaemon
  tail -n +1 -F "$log" 2>/dev/null &
  awaitLog '\[守护\] sharingd PID:[0-9]+ 完成$'
  # Lets the view of the log show the first pass as well.
  sleep 1
  say
  say "This is the daemon's log; the daemon runs until Ctrl-C. To try commands, run in another terminal:"
  say "  $jbroot/enter"
  say "and there, for example:"
  say "  vorlatchctl status --watch"
  say "  vorlatchctl set kbd NiceValue=5"
  say "  vorlatchctl disable"
  say "  vorlatchctl --help"
  sayWhatIsRefused
  say "The page that does all this in a browser:"
  servePage
  say
  wait "$daemon_pid" || true
  die "the daemon has ended"
}
