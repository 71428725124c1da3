#include "kernel/nice_value.h"

#include <cerrno>

#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {

int setNiceValue(std::int32_t pid, std::int32_t nice_value) {
  return platform::setpriority(PRIO_PROCESS, static_cast<std::uint32_t>(pid), nice_value);
}

int getNiceValue(std::int32_t pid) {
  return platform::getpriority(PRIO_PROCESS, static_cast<std::uint32_t>(pid));
}

void holdNiceValue(const TargetSettings& settings, std::int32_t pid) {
  const std::int32_t target = settings.nice_value;
  const std::optional<std::int32_t> current = observeNiceValue(pid);
  if (!current) {
    const int error = errno;
    writeLogLine("[%s] [进程优先级] 读取状态失败 err:%d\n", error);
    return;
  }
  if (*current == target) {
    writeLogLine("[%s] [进程优先级] 目标已是 %d\n", target);
    return;
  }
  if (setNiceValue(pid, target) != 0) {
    const int error = errno;
    writeLogLine("[%s] [进程优先级] 当前:%d 目标:%d -> [失败] err:%d\n", *current, target, error);
    writeLogLine("[%s] [内核] ：失败\n");
    return;
  }
  const int actual = getNiceValue(pid);
  writeLogLine("[%s] [进程优先级] 当前:%d 目标:%d -> [成功]\n", *current, target);
  if (actual == target) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖 (实际: %d)\n", actual);
  }
}

void returnNiceValue(std::int32_t pid) {
  setNiceValue(pid, 0);
}

std::optional<std::int32_t> observeNiceValue(std::int32_t pid) {
  errno = 0;
  const int nice_value = getNiceValue(pid);
  if (nice_value == -1 && errno != 0) return std::nullopt;
  return nice_value;
}

}  // namespace vorlatch
