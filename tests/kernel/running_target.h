// A running target for tests of the stages of an application.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "kernel/apply_limits.h"
#include "platform/memorystatus.h"
#include "tests/support/story.h"

namespace vorlatch::tests {

// A target that runs as pid 100. Its settings keep all stages but one quiet: limits read back as
// the system's 1450, the nice value is already 0, and no band is set.
struct RunningTarget : Story {
  RunningTarget() {
    openLog();
    device.launch({.name = "backboardd", .pid = 100});
  }
  // Applies the settings. Returns the log without its last line, which is always the same.
  Lines apply(const plist::Dictionary& dictionary) {
    applyLimitsForApp("backboardd", readTargetSettings(dictionary), 100);
    Lines log = takeLog();
    EXPECT_EQ(log.back(), "[守护] backboardd PID:100 完成");
    log.pop_back();
    return log;
  }
  Lines limits(std::int32_t active_mb, std::int32_t inactive_mb) {
    const Lines log = apply(
        {{"MemLimitActive", active_mb}, {"MemLimitInactive", inactive_mb}, {"JetsamPriority", -1}});
    return {log.begin(), log.end() - 2};
  }
  Lines nice(const plist::Value& value) {
    const Lines log = apply({{"NiceValue", value}, {"JetsamPriority", -1}});
    return {log.begin() + 2, log.end() - 1};
  }
  Lines band(const plist::Value& value) {
    const Lines log = apply({{"JetsamPriority", value}});
    return {log.begin() + 3, log.end()};
  }
  Lines strip(const plist::Value& value) {
    const Lines log = apply({{"StripManaged", value}, {"JetsamPriority", -1}});
    return {log.begin() + 4, log.end()};
  }
  void readBackLimits(std::int32_t active_mb, std::int32_t inactive_mb) const {
    const platform::memorystatus_memlimit_properties limits{.memlimit_active = active_mb,
                                                            .memlimit_active_attr = 0,
                                                            .memlimit_inactive = inactive_mb,
                                                            .memlimit_inactive_attr = 0};
    device.script({.function = "memorystatus_control",
                   .command = platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES,
                   .result = 0,
                   .buffer = std::string(reinterpret_cast<const char*>(&limits), sizeof(limits))});
  }
};

}  // namespace vorlatch::tests
