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

tourOfStart() {
  heading "1. Before" "Seven small processes stand for the ones that the default preset names."
  showProcesses

  heading "2. The daemon starts" \
    "It writes the default preset, as there are no preferences yet, and applies it after 150 ms."
  startDaemon
  awaitLog '\[守护\] sharingd PID:[0-9]+ 完成$'
  control log
  say
  showProcesses

  heading "3. What it holds" "What the daemon wrote of each target, beside what the kernel says now."
  control status
  say
  say "The file in which other programs read it:"
  local status=${log%/*}/com.zel.vorlatch.status.plist
  say "\$ cat $status"
  cat "$status"
}

tourOfChanges() {
  heading "4. An edit" "kbd is to have nice 5. The daemon is told, and applies what has changed."
  control set kbd NiceValue=5
  awaitLog '\[守护\] kbd PID:[0-9]+ 完成$'
  control log --target kbd -n 8
  control status kbd

  heading "5. A restart" "dasd ends and is started again; after each, the daemon is told to look."
  stopTarget dasd
  control apply
  awaitLog '\[进程\] 目标: dasd 已退出'
  startTarget dasd
  control apply
  awaitLog '\[守护\] dasd PID:[0-9]+ 完成$'
  control log --target dasd -n 10
}

tourOfEnd() {
  heading "6. Switched off" "Every target is handed back to the system; the daemon waits on."
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
  printf '\nThat was the tour; what was started is ended now. The files stay in %s\n' "$jbroot"
}
