# shellcheck shell=bash
# A tour of what the daemon does, for somebody who sees it for the first time; sourced by
# scripts/run when the targets run and the daemon does not.

heading() {
  printf '\n== %s\n' "$1"
  printf '%s\n\n' "$2"
}

showProcesses() {
  local pids="${target_pids[*]}"
  ((daemon_pid == 0)) || pids+=" $daemon_pid"
  # shellcheck disable=SC2086 # a list of numbers
  ps -o pid,ni,comm -p ${pids// /,} | sed 's/^/  /'
}

showStatus() {
  python3 - "$status" <<'PYTHON'
import plistlib
import sys

with open(sys.argv[1], "rb") as file:
    entries = plistlib.load(file)
for key, entry in entries.items():
    print(f"  {key:16} pid {entry['pid']:<6} nice {entry['n']:<4} jetsam band {entry['p']}")
if not entries:
    print("  (no entry)")
PYTHON
}

# editPreferences STATEMENT: changes the list as another program would, and replaces the file whole.
editPreferences() {
  python3 - "$preferences" "$1" <<'PYTHON'
import os
import plistlib
import sys

path, statement = sys.argv[1:]
with open(path, "rb") as file:
    preferences = plistlib.load(file)
exec(statement, {"preferences": preferences})
with open(path + ".edited", "wb") as file:
    plistlib.dump(preferences, file)
os.chmod(path + ".edited", 0o666)
os.replace(path + ".edited", path)
PYTHON
}

tourOfStart() {
  heading "1. Before" "Seven small processes stand for the ones that the default preset names."
  showProcesses

  heading "2. The daemon starts" \
    "It writes the default preset, as there are no preferences yet, and applies it after 150 ms."
  startDaemon
  showLogUntil '\[守护\] sharingd PID:[0-9]+ 完成$'
  say
  showProcesses

  heading "3. The status file" "Other programs read here what the kernel says of each target."
  say "  $status"
  showStatus
}

tourOfChanges() {
  heading "4. An edit" "Another program sets kbd to nice 5 in the preferences and posts the notification."
  editPreferences 'preferences["AppConfigs"]["kbd"]["NiceValue"] = 5'
  apply
  showLogUntil '\[守护\] kbd PID:[0-9]+ 完成$'
  say
  showProcesses

  heading "5. A restart" "dasd ends and is started again; after each, the notification is posted."
  stopTarget dasd
  apply
  showLogUntil '\[进程\] 目标: dasd 已退出'
  startTarget dasd
  apply
  showLogUntil '\[守护\] dasd PID:[0-9]+ 完成$'
}

tourOfEnd() {
  heading "6. Switched off" "Every target is handed back to the system; the daemon waits on."
  editPreferences 'preferences["Enabled"] = False'
  apply
  showLogUntil '\[守护\] sharingd PID:[0-9]+$'
  say
  showProcesses
  say
  say "  $status"
  showStatus
}

showTour() {
  sayWhatIsRefused
  tourOfStart
  tourOfChanges
  tourOfEnd
  printf '\nThat was the tour; what was started is ended now. The files stay in %s\n' "$jbroot"
}
