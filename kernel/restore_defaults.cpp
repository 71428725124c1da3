#include "kernel/restore_defaults.h"

#include "config/status_file.h"
#include "kernel/process_settings.h"
#include "log/log_line.h"

namespace vorlatch {

void restoreDefaultsForProcess(const std::string& key, std::int32_t pid) {
  updateStatusFile(key, 0, 0, 0);
  if (pid == 0) return;
  writeTargetSeparator();
  writeLogLine("[%s] [恢复] 目标: %s PID: %d\n", key.c_str(), pid);
  setNiceValue(pid, 0);
  setMemoryLimits(pid, 0, 0);
  setManaged(pid, true);
  setJetsamPriority(pid, 0, 0);
  writeLogLine("[%s] [守护] %s PID:%d\n", key.c_str(), pid);
}

}  // namespace vorlatch
