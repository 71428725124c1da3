#include "kernel/self_protection.h"

#include <unistd.h>

#include <array>
#include <cstdint>

#include "kernel/jetsam_band.h"
#include "kernel/jetsam_readback.h"
#include "kernel/nice_value.h"
#include "log/log_line.h"
#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

// Tried in this order: a band above those of every known kernel, then each generation's highest.
constexpr std::array<std::int32_t, 3> kBandLadder = {
    kBandNeverAdapted, platform::kHighestBandSinceIOS16, platform::kHighestBandToIOS15};

void raiseNiceValue(std::int32_t own_pid) {
  const int set_result = setNiceValue(own_pid, kLowestNice);
  const int actual = getNiceValue(own_pid);
  writeLogLine("[%s] [系统] 设定进程优先级 -> %s\n",
               set_result == 0 ? "[内核: 成功]" : "[内核: 失败]");
  if (set_result != 0) {
    writeLogLine("[%s] [内核] ：失败\n");
  } else if (actual == kLowestNice) {
    writeLogLine("[%s] [内核] ：成功\n");
  } else {
    writeLogLine("[%s] [内核] ：已被系统覆盖 (实际: %d)\n", actual);
  }
}

void raiseJetsamBand(std::int32_t own_pid) {
  int set_result = -1;
  std::int32_t tried_band = 0;
  for (const std::int32_t band : kBandLadder) {
    tried_band = band;
    set_result = setJetsamPriority(own_pid, band, platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION);
    if (set_result != -1) break;
  }
  writeLogLine("[%s] [系统] 设定内存优先级(%d) -> %s\n", tried_band,
               set_result == 0 ? "[内核] 成功" : "[内核] 失败");
  verifyJetsamPriority(own_pid, set_result, tried_band);
}

}  // namespace

void protect_daemon_itself() {
  const std::int32_t own_pid = getpid();
  writeLogLine("[%s] [守护] PID:%d\n", own_pid);
  raiseNiceValue(own_pid);
  raiseJetsamBand(own_pid);
  writeLogLine("[%s] [守护] Vorlatch 后台守护进程初始化完成\n");
  writeChapterSeparator();
}

}  // namespace vorlatch
