# shellcheck shell=bash
# A jailbreak root with targets and a daemon at work in it; sourced by scripts/run.

# By file name, which is the process name; the app's is that of its bundle's executable.
target_names=(SpringBoard backboardd dasd kbd runningboardd sharingd WeChat)
# By target name, the process id.
declare -A target_pids=()
daemon_pid=0
log_lines_seen=0

# Takes a root that no other run uses at the moment. Beside one in a process namespace of its own
# another may run, in a second root; in a shared one their targets would be taken for each other.
takeRoot() {
  local suffix
  mkdir -p "$root/build"
  for suffix in '' -2 -3 -4; do
    jbroot=$root/build/jbroot$suffix
    exec 8>"$jbroot.lock"
    flock --nonblock 8 && return
    [[ -n ${VORLATCH_RUN_INSIDE-} ]] || break
  done
  die "is running already (it holds $jbroot.lock); end that run first"
}

prepareDemo() {
  takeRoot
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

# await SECONDS WHAT COMMAND...: until the command succeeds; WHAT is missed when it never does.
await() {
  local deadline=$((SECONDS + $1)) what=$2
  shift 2
  until "$@"; do
    ((SECONDS < deadline)) || die "waited in vain for $what"
    sleep 0.02
  done
}

runs() { kill -0 "$1" 2>/dev/null; }

runsAs() { [[ $(cat "/proc/$1/comm" 2>/dev/null) == "$2" ]]; }

# What is started goes when this script goes, even if that is killed. No descriptor of this
# script's is handed on: a lock held by a target would outlive the run.
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

# Runs vorlatchctl, and shows it as a user would type it.
control() {
  say "\$ vorlatchctl $*"
  "$jbroot/usr/bin/vorlatchctl" "$@"
}

# Ends what this run started, by id; the rest of the script's jobs is the view of the log.
endDemo() {
  local pid
  trap '' INT TERM HUP
  for pid in $(jobs -p); do stopProcess "$pid"; done
}

newLog() { tail -n "+$((log_lines_seen + 1))" "$log"; }

newLogHas() { newLog | grep -E "$1" >/dev/null; }

# Waits for a line of the log that came since the last time.
awaitLog() {
  await 10 "the log line \"$1\"" newLogHas "$1"
  log_lines_seen=$(wc -l <"$log")
}

# Kept running as the system's own launcher would, so that one may be killed to see what happens.
restartDeadTargets() {
  local name
  for name in "${target_names[@]}"; do
    runs "${target_pids[$name]}" && continue
    wait "${target_pids[$name]}" 2>/dev/null || true
    startTarget "$name"
    say "(run: $name had ended and was started again; vorlatchctl apply makes the daemon look.)"
  done
}

sayWhatIsRefused() {
  mayLowerNiceValues ||
    say "Without root's rights nice values below 0 are refused here; the log shows each refusal."
}

# Writes a script that runs a command where the targets run: seen from elsewhere they have other
# process ids than the daemon knows.
writeEnter() {
  local enter=$jbroot/enter within=()
  if [[ -n ${VORLATCH_RUN_INSIDE-} ]]; then
    local namespaces=/proc/$VORLATCH_RUN_INSIDE/ns
    within=(nsenter "--mount=$namespaces/mnt" "--pid=$namespaces/pid_for_children")
    ((EUID == 0)) || within+=("--user=$namespaces/user" --preserve-credentials)
  fi
  within+=(env -C "$jbroot" "PATH=$jbroot/usr/bin:$PATH")
  printf '#!/usr/bin/env bash\nexec %s "$@"\n' "${within[*]@Q}" >"$enter"
  chmod +x "$enter"
}

stayInView() {
  writeEnter
  say "The daemon runs until Ctrl-C; this is its log. To try things out, in another terminal:"
  say "  $jbroot/enter bash"
  say "and there, for a start:"
  say "  vorlatchctl status --watch"
  say "  vorlatchctl set kbd NiceValue=5"
  say "  vorlatchctl disable"
  say "  vorlatchctl --help"
  sayWhatIsRefused
  say
  startDaemon
  tail -n +1 -F "$log" 2>/dev/null &
  while runs "$daemon_pid"; do
    wait -n 2>/dev/null || true
    restartDeadTargets
  done
  die "the daemon has ended"
}
