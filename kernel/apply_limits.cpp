#include "kernel/apply_limits.h"

#include <cerrno>
#include <optional>

#include "config/status_file.h"
#include "kernel/jetsam_readback.h"
#include "kernel/judgement.h"
#include "kernel/process_settings.h"
#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using platform::memorystatus_control;

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
  platform::memorystatus_memlimit_properties actual{};
  memorystatus_control(platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES, pid, 0, &actual,
                       sizeof(actual));
  writeLogLine("[%s] [内存限制] 目标 Act:%d Inact:%d | 最终 Act:%d Inact:%d -> [成功]\n", active_mb,
               inactive_mb, actual.memlimit_active, actual.memlimit_inactive);
  if (memoryLimitHolds(active_mb, actual.memlimit_active) &&
      memoryLimitHolds(inactive_mb, actual.memlimit_inactive)) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖\n");
  }
}

void holdNiceValue(const TargetSettings& settings, std::int32_t pid) {
  const std::int32_t target = settings.nice_value;
  errno = 0;
  const int current = getNiceValue(pid);
  if (current == -1 && errno != 0) {
    const int error = errno;
    writeLogLine("[%s] [进程优先级] 读取状态失败 err:%d\n", error);
    return;
  }
  if (current == target) {
    writeLogLine("[%s] [进程优先级] 目标已是 %d\n", target);
    return;
  }
  if (setNiceValue(pid, target) != 0) {
    const int error = errno;
    writeLogLine("[%s] [进程优先级] 当前:%d 目标:%d -> [失败] err:%d\n", current, target, error);
    writeLogLine("[%s] [内核] ：失败\n");
    return;
  }
  const int actual = getNiceValue(pid);
  writeLogLine("[%s] [进程优先级] 当前:%d 目标:%d -> [成功]\n", current, target);
  if (actual == target) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖 (实际: %d)\n", actual);
  }
}

void returnJetsamBandToSystem(std::int32_t pid) {
  setManaged(pid, true);
  const int set_result = setJetsamPriority(pid, 0, 0);
  writeLogLine("[%s] [内存优先级] 目标:0 -> [恢复默认, 系统接管]\n");
  verifyJetsamPriority(pid, set_result, kNoJetsamPriority);
}

void holdJetsamBand(std::int32_t pid, std::int32_t wanted_band) {
  std::int32_t band = wanted_band;
  setManaged(pid, false);
  errno = 0;
  int set_result = setJetsamPriority(pid, band, platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION);
  const std::optional<std::int32_t> adapted = adaptedBand(wanted_band);
  if (set_result == -1 && adapted) {
    band = *adapted;
    set_result = setJetsamPriority(pid, band, platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION);
    writeLogLine("[%s] [环境适配] 目标 %d -> 实际 %d\n", wanted_band, band);
  }
  writeLogLine("[%s] [系统] 内存优先级:%d -> [%s]\n", band,
               set_result == 0 ? "内核: 成功" : "内核: 失败");
  verifyJetsamPriority(pid, set_result, band);
}

void holdJetsamPriority(const TargetSettings& settings, std::int32_t pid) {
  const std::int32_t band = settings.jetsam_priority;
  if (band == 0) {
    returnJetsamBandToSystem(pid);
  } else if (band == -1) {
    writeLogLine("[%s] [内存优先级] 目标:-1 -> 未设置, 跳过\n");
  } else {
    holdJetsamBand(pid, band);
  }
}

// The strong lock: unmanaged, never frozen, kept elevated while inactive, scheduled like the app in
// front. Releasing it leaves the role, which the system sets anew by itself.
void setManagedState(bool strip, std::int32_t pid) {
  errno = 0;
  const int set_result = setManaged(pid, !strip);
  const int managed =
      memorystatus_control(platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED, pid, 0, nullptr, 0);
  setFreezable(pid, !strip);
  memorystatus_control(strip ? platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE
                             : platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE,
                       pid, 0, nullptr, 0);
  if (strip) {
    platform::setpriority(platform::PRIO_DARWIN_ROLE, static_cast<std::uint32_t>(pid),
                          platform::PRIO_DARWIN_ROLE_UI_FOCAL);
  }
  // The message has no field for the target, and its lone bracket belongs to it: programs that read
  // the log know it in this form.
  writeLogLine("[%s] [状态剥离] 目标: %s -> [操作: %s] [内核]: %d)\n",
               strip ? "剥离系统托管并开启强锁" : "恢复系统托管", set_result == 0 ? "成功" : "失败",
               managed);
}

}  // namespace

void applyLimitsForApp(const std::string& target, const TargetSettings& settings,
                       std::int32_t pid) {
  if (pid == 0) return;
  holdMemoryLimits(settings, pid);
  holdNiceValue(settings, pid);
  holdJetsamPriority(settings, pid);
  if (settings.strips_managed) setManagedState(*settings.strips_managed, pid);
  const int actual_nice = getNiceValue(pid);
  const std::int32_t actual_band = getActualJetsam(pid);
  updateStatusFile(target, pid, actual_nice, actual_band);
  writeLogLine("[%s] [守护] %s PID:%d 完成\n", target.c_str(), pid);
}

}  // namespace vorlatch
