#include "kernel/apply_limits.h"

#include "config/status_file.h"
#include "kernel/held_settings.h"
#include "kernel/jetsam_readback.h"
#include "log/log_line.h"

namespace vorlatch {

void applyLimitsForApp(const std::string& target, const TargetSettings& settings,
                       std::int32_t pid) {
  if (pid == 0) return;
  for (const auto hold : kHoldInOrder) hold(settings, pid);
  const int actual_nice = getNiceValue(pid);
  const std::int32_t actual_band = getActualJetsam(pid);
  updateStatusFile(target, pid, actual_nice, actual_band);
  writeLogLine("[%s] [守护] %s PID:%d 完成\n", target.c_str(), pid);
}

}  // namespace vorlatch
