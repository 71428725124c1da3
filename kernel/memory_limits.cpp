#include "kernel/memory_limits.h"

#include <cerrno>

#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using platform::memorystatus_control;

std::uint32_t attributesOf(std::int32_t limit_mb) {
  return limit_mb >= 1 ? platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL : 0;
}

int setMemoryLimits(std::int32_t pid, std::int32_t active_mb, std::int32_t inactive_mb) {
  platform::memorystatus_memlimit_properties limits{
      .memlimit_active = active_mb,
      .memlimit_active_attr = attributesOf(active_mb),
      .memlimit_inactive = inactive_mb,
      .memlimit_inactive_attr = attributesOf(inactive_mb),
  };
  return memorystatus_control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits,
                              sizeof(limits));
}

// Returns 0, or -1. In both cases `limits` receives what the kernel wrote.
int getMemoryLimits(std::int32_t pid, MemoryLimits& limits) {
  platform::memorystatus_memlimit_properties properties{};
  const int result = memorystatus_control(platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid,
                                          0, &properties, sizeof(properties));
  limits = {.active_mb = properties.memlimit_active, .inactive_mb = properties.memlimit_inactive};
  return result;
}

bool limitHolds(std::int32_t wanted_mb, std::int32_t actual_mb) {
  if ((wanted_mb == 0 || wanted_mb == -1) && actual_mb >= 1) return true;
  return actual_mb == wanted_mb;
}

}  // namespace

void holdMemoryLimits(const TargetSettings& settings, std::int32_t pid) {
  const std::int32_t active_mb = settings.active_limit_mb;
  const std::int32_t inactive_mb = settings.inactive_limit_mb;
  errno = 0;
  if (setMemoryLimits(pid, active_mb, inactive_mb) != 0) {
    const int error = errno;
    writeLogLine("[%s] [内存限制] 目标 Act:%d Inact:%d -> [失败] err:%d\n", active_mb, inactive_mb,
                 error);
    writeLogLine("[%s] [内核] ：失败\n");
    return;
  }
  MemoryLimits actual;
  getMemoryLimits(pid, actual);
  writeLogLine("[%s] [内存限制] 目标 Act:%d Inact:%d | 最终 Act:%d Inact:%d -> [成功]\n", active_mb,
               inactive_mb, actual.active_mb, actual.inactive_mb);
  if (memoryLimitsHold(settings, actual)) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖\n");
  }
}

void returnMemoryLimits(std::int32_t pid) {
  setMemoryLimits(pid, 0, 0);
}

std::optional<MemoryLimits> observeMemoryLimits(std::int32_t pid) {
  MemoryLimits limits;
  if (getMemoryLimits(pid, limits) != 0) return std::nullopt;
  return limits;
}

bool memoryLimitsHold(const TargetSettings& settings, const MemoryLimits& actual) {
  return limitHolds(settings.active_limit_mb, actual.active_mb) &&
         limitHolds(settings.inactive_limit_mb, actual.inactive_mb);
}

}  // namespace vorlatch
