#include "kernel/restore_defaults.h"

#include "config/status_file.h"
#include "kernel/held_settings.h"
#include "log/log_line.h"

namespace vorlatch {

void restoreDefaultsForProcess(const std::string& key, std::int32_t pid) {
  removeStatusEntry(key);
  if (pid == 0) return;
  writeTargetSeparator();
  writeLogLine("[%s] [恢复] 目标: %s PID: %d\n", key.c_str(), pid);
  for (const auto give_back : kReturnInOrder) give_back(pid);
  writeLogLine("[%s] [守护] %s PID:%d\n", key.c_str(), pid);
}

}  // namespace vorlatch
