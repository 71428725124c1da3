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

tourOfEnd() {
  heading "6. Switched off" "The daemon restores the default values of every target, and keeps running."
  control disable
  awaitLog '\[守护\] sharingd PID:[0-9]+$'
  control log --category 恢复
  control status
  say
  showProcesses
}

showTour() {
  sayWhatIsRefused
  tourOfStart
  tourOfChanges
  tourOfEnd
  printf '\nEnd of the tour. All processes are stopped; the files remain in %s\n' "$jbroot"
}
