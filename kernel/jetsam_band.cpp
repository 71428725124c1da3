#include "kernel/jetsam_band.h"

#include <cerrno>

#include "kernel/jetsam_readback.h"
#include "kernel/managed_state.h"
#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

// Since iOS 16, kernels number their bands in steps of 10; before that, in steps of 1.
constexpr std::int32_t kBandScale = 10;

void giveBandToSystem(std::int32_t pid) {
  setManaged(pid, true);
  const int set_result = setJetsamPriority(pid, 0, 0);
  writeLogLine("[%s] [内存优先级] 目标:0 -> [恢复默认, 系统接管]\n");
  verifyJetsamPriority(pid, set_result, kNoJetsamPriority);
}

void holdBand(std::int32_t wanted_band, std::int32_t pid) {
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

}  // namespace

int setJetsamPriority(std::int32_t pid, std::int32_t band, std::uint32_t flags) {
  platform::memorystatus_priority_properties properties{
      .priority = band, .padding = 0, .user_data = 0};
  return platform::memorystatus_control(platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid,
                                        flags, &properties, sizeof(properties));
}

void holdJetsamBand(const TargetSettings& settings, std::int32_t pid) {
  const std::int32_t band = settings.jetsam_priority;
  if (band == 0) {
    giveBandToSystem(pid);
  } else if (band == -1) {
    writeLogLine("[%s] [内存优先级] 目标:-1 -> 未设置, 跳过\n");
  } else {
    holdBand(band, pid);
  }
}

void returnJetsamBand(std::int32_t pid) {
  setJetsamPriority(pid, 0, 0);
}

std::optional<std::int32_t> adaptedBand(std::int32_t refused_band) {
  if (refused_band < 1 || refused_band == kBandNeverAdapted) return std::nullopt;
  return refused_band / kBandScale;
}

bool jetsamBandHolds(const TargetSettings& settings, std::int32_t actual, std::int32_t highest) {
  const std::int32_t wanted = settings.jetsam_priority;
  if (wanted == 0 || wanted == -1 || actual == wanted) return true;
  return wanted > highest && adaptedBand(wanted) == actual;
}

}  // namespace vorlatch
