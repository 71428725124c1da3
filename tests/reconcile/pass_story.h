// Scenarios with passes, and the log lines that passes write.
#pragma once

#include <cstdint>
#include <string>

#include "tests/support/story.h"

namespace vorlatch::tests {

// Settings whose application writes few lines: see applied().
inline const plist::Dictionary kSettings{{"JetsamPriority", -1}};

inline const Lines kRemoved{kTargetRule, "[配置] 已有进程从列表移除，已恢复默认"};
inline const Lines kSwitchedOff{kTargetRule, "[配置] 生效开关已关闭，已挂起守护进程并还原默认状态"};

// The log block of a target that was applied with kSettings.
inline Lines applied(const std::string& header, const std::string& key, std::int32_t pid) {
  return {kTargetRule,
          header,
          "[内存限制] 目标 Act:0 Inact:0 | 最终 Act:1450 Inact:1450 -> [成功]",
          "[内核] ：成功",
          "[进程优先级] 目标已是 0",
          "[内存优先级] 目标:-1 -> 未设置, 跳过",
          "[守护] " + key + " PID:" + std::to_string(pid) + " 完成"};
}

inline Lines started(const std::string& key, std::int32_t pid) {
  return applied("[进程] 目标: " + key + " 已启动 PID: " + std::to_string(pid) + " ", key, pid);
}

inline Lines edited(const std::string& key, std::int32_t pid) {
  return applied("[配置] 目标: " + key + " PID: " + std::to_string(pid), key, pid);
}

inline Lines ticked(const std::string& key, std::int32_t interval_s, std::int32_t pid) {
  return applied("[守护] 目标: " + key + " | 检测: " + std::to_string(interval_s) +
                     "s | PID: " + std::to_string(pid),
                 key, pid);
}

inline Lines exited(const std::string& key) {
  return {kTargetRule, "[进程] 目标: " + key + " 已退出"};
}

inline Lines restored(const std::string& key, std::int32_t pid) {
  const std::string number = std::to_string(pid);
  return {kTargetRule, "[恢复] 目标: " + key + " PID: " + number,
          "[守护] " + key + " PID:" + number};
}

// The status entry of a target that was applied with kSettings.
inline plist::Dictionary entry(std::int32_t pid) {
  return {{"pid", pid}, {"n", 0}, {"p", 180}};
}

inline plist::Dictionary with(plist::Dictionary settings, const std::string& key,
                              const plist::Value& value) {
  settings.insert_or_assign(key, value);
  return settings;
}

struct Daemon : Story {
  std::int32_t launch(const std::string& name) const { return device.launch({.name = name}); }
  // Starts the daemon with these targets and runs the first pass.
  void settleWith(const plist::Dictionary& targets) {
    writeTargets(targets);
    startAndSettle();
  }
  Lines pass() {
    postAndRun();
    return takeLog();
  }
  Lines passWith(const plist::Dictionary& targets) {
    writeTargets(targets);
    return pass();
  }
  Lines runAndTakeLog(std::chrono::nanoseconds duration) {
    run(duration);
    return takeLog();
  }
};

// A daemon that has run its first pass with one target, alpha, which runs.
struct Alpha : Daemon {
  explicit Alpha(const plist::Dictionary& settings = kSettings) : pid(launch("alpha")) {
    settleWith({{"alpha", settings}});
  }
  Lines restart() {
    device.exit(pid);
    pid = launch("alpha");
    return started("alpha", pid);
  }
  std::int32_t pid;
};

inline plist::Dictionary every(std::int32_t interval_s) {
  return with(kSettings, "CheckInterval", interval_s);
}

}  // namespace vorlatch::tests
