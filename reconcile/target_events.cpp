#include "reconcile/target_events.h"

#include "config/status_file.h"
#include "kernel/apply_limits.h"
#include "log/log_line.h"

namespace vorlatch {

void handleChangedPID(const std::string& key, const TargetSettings& settings, std::int32_t pid) {
  writeTargetSeparator();
  if (pid != 0) {
    writeLogLine("[%s] [进程] 目标: %s 已启动 PID: %d \n", key.c_str(), pid);
    applyLimitsForApp(key, settings, pid);
  } else {
    writeLogLine("[%s] [进程] 目标: %s 已退出\n", key.c_str());
    removeStatusEntry(key);
  }
}

}  // namespace vorlatch
