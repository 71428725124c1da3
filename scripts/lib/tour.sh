# shellcheck shell=bash
# A tour of what the daemon does, for new users. scripts/run sources this file after it started the
# targets, and before it starts the daemon.

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

tourOfStart() {
  heading "1. Before" "Seven small processes have the names of the targets in the default preset."
  showProcesses

  heading "2. The daemon starts" \
    "There are no preferences yet, so it writes the default preset, and applies it after 150 ms."
  startDaemon
  awaitLog '\[守护\] sharingd PID:[0-9]+ 完成$'
  control log --all
  say
  showProcesses

  heading "3. What it holds" "The values that the daemon recorded for each target, and the current ones in the kernel."
  control status
  say
  say "Other programs read the recorded values from this file:"
  local status=${log%/*}/com.zel.vorlatch.status.plist
  say "\$ cat $status"
  cat "$status"
}

tourOfChanges() {
  heading "4. An edit" "Sets the nice value of kbd to 5. vorlatchctl notifies the daemon, which applies the change."
  control set kbd NiceValue=5
  awaitLog '\[守护\] kbd PID:[0-9]+ 完成$'
  control log --target kbd -n 8
  control status kbd

  heading "5. A restart" "dasd ends and starts again. Each time, vorlatchctl apply makes the daemon check its targets."
  stopTarget dasd
  control apply
  awaitLog '\[进程\] 目标: dasd 已退出'
  startTarget dasd
  control apply
  awaitLog '\[守护\] dasd PID:[0-9]+ 完成$'
  control log --target dasd -n 10
}

# Writes a report as the system does when it ends a process for its memory.
reportKillOfWeChat() {
  local reports=$jbroot/var/mobile/Library/Logs/CrashReporter
  local now
  now=$(date '+%F %T.00 %z')
  mkdir -p "$reports"
  cat >"$reports/JetsamEvent-$(date +%F-%H%M%S).ips" <<REPORT
{"bug_type":"298","timestamp":"$now","os_version":"iPhone OS 16.5 (20F66)"}
{
  "date": "$now",
  "memoryStatus": {"pageSize": 16384, "memoryPages": {"free": 2048}},
  "largestProcess": "WeChat",
  "processes": [
    {"name": "WeChat", "pid": 345, "priority": 0, "states": ["suspended"], "rpages": 52000,
     "lifetimeMax": 65280, "reason": "vm-pageshortage"}
  ]
}
REPORT
}

tourOfMemory() {
  heading "6. Memory" "The processes that use most memory, and what the system ended when memory was short.
Linux writes no such reports, so the tour writes one."
  control ps --sort memory
  reportKillOfWeChat
  control kills
  control status com.tencent.xin
}

tourOfEnd() {
  heading "7. Switched off" "The daemon restores the default values of every target, and keeps running."
  control disable
  awaitLog '\[守护\] sharingd PID:[0-9]+$'
  control log --category 恢复
  control status || (($? == 1))  # running targets are not held
  say
  showProcesses
}

showTour() {
  sayWhatIsRefused
  tourOfStart
  tourOfChanges
  tourOfMemory
  tourOfEnd
  printf '\nEnd of the tour. All processes are stopped; the files remain in %s\n' "$jbroot"
}
