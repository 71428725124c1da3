#include "kernel/managed_state.h"

#include <cerrno>

#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using platform::memorystatus_control;

// Passes the state in a four-byte buffer with flags 0, as the kernel expects.
int setState(std::uint32_t command, std::int32_t pid, bool state) {
  std::int32_t value = state ? 1 : 0;
  return memorystatus_control(command, pid, 0, &value, sizeof(value));
}

int getManaged(std::int32_t pid) {
  return memorystatus_control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid, 0, nullptr,
                              0);
}

}  // namespace

int setManaged(std::int32_t pid, bool managed) {
  return setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED, pid, managed);
}

void holdManagedState(const TargetSettings& settings, std::int32_t pid) {
  if (!settings.strips_managed) return;
  const bool strip = *settings.strips_managed;
  errno = 0;
  const int set_result = setManaged(pid, !strip);
  const int managed = getManaged(pid);
  setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE, pid, !strip);
  memorystatus_control(strip ? platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE
                             : platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE,
                       pid, 0, nullptr, 0);
  if (strip) {
    platform::setpriority(platform::PRIO_DARWIN_ROLE, static_cast<std::uint32_t>(pid),
                          platform::PRIO_DARWIN_ROLE_UI_FOCAL);
  }
  // The message does not name the target, and its last bracket is unbalanced. Both are intended:
  // programs that read the log expect this form.
  writeLogLine("[%s] [状态剥离] 目标: %s -> [操作: %s] [内核]: %d)\n",
               strip ? "剥离系统托管并开启强锁" : "恢复系统托管", set_result == 0 ? "成功" : "失败",
               managed);
}

void returnManagedState(std::int32_t pid) {
  setManaged(pid, true);
}

std::optional<bool> observeManagedState(std::int32_t pid) {
  const int managed = getManaged(pid);
  if (managed < 0) return std::nullopt;
  return managed != 0;
}

}  // namespace vorlatch
