// The daemon's log as it has to be: blocks of lines without their stamps; and its status file.
#pragma once

#include <unistd.h>

#include <string>

#include "tests/blackbox/installation.h"
#include "tests/support/text.h"

namespace vorlatch {

inline constexpr const char* kChapterSeparator = "========================================";
inline constexpr const char* kTargetSeparator = "----------------------------------------";
inline constexpr const char* kSuccess = "[内核] ：成功";
inline constexpr const char* kFailure = "[内核] ：失败";
inline constexpr int kDefaultTaskLimitMb = 2048;

inline Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

// Start-up with a preferences file there, by a daemon that may do everything or by one that may
// not; and by a daemon of the test's own user.
inline Lines startLines(pid_t daemon, bool privileged) {
  const Lines priorities =
      privileged
          ? Lines{"[系统] 设定进程优先级 -> [内核: 成功]", kSuccess,
                  "[系统] 设定内存优先级(210) -> [内核] 成功", "[内存优先级] 为:210", kSuccess}
          : Lines{"[系统] 设定进程优先级 -> [内核: 失败]", kFailure,
                  "[系统] 设定内存优先级(21) -> [内核] 失败",
                  tests::text("[内存优先级] 未在内核优先级列表中找到 PID:", daemon), kFailure};
  return Lines{kChapterSeparator, tests::text("[守护] PID:", daemon)} + priorities +
         Lines{"[守护] Vorlatch 后台守护进程初始化完成", kChapterSeparator};
}

inline Lines startLines(pid_t daemon) {
  return startLines(daemon, geteuid() == 0);
}

// A target's process was seen to start.
inline Lines startedLines(const std::string& key, pid_t pid) {
  return {kTargetSeparator, tests::text("[进程] 目标: ", key, " 已启动 PID: ", pid, " ")};
}

// It was handed back.
inline Lines restoredLines(const std::string& key, pid_t pid) {
  return {kTargetSeparator, tests::text("[恢复] 目标: ", key, " PID: ", pid),
          tests::text("[守护] ", key, " PID:", pid)};
}

// The preferences were switched off.
inline const Lines kSwitchedOffLines{kTargetSeparator,
                                     "[配置] 生效开关已关闭，已挂起守护进程并还原默认状态"};

// What a privileged daemon does with a target: as configured, and its nice value before.
struct Applied {
  int memory_limit_mb = 0;  // while active
  int nice = 0;
  int nice_before = 0;
  int band = -1;  // -1: left alone
  bool stripped = false;
};

inline std::string doneLine(const std::string& key, pid_t pid) {
  return tests::text("[守护] ", key, " PID:", pid, " 完成");
}

inline Lines appliedLines(const std::string& key, pid_t pid, const Applied& applied) {
  const int limit_mb = applied.memory_limit_mb;
  const int limit_now_mb = limit_mb > 0 ? limit_mb : kDefaultTaskLimitMb;
  Lines lines{tests::text("[内存限制] 目标 Act:", limit_mb, " Inact:0 | 最终 Act:", limit_now_mb,
                          " Inact:", kDefaultTaskLimitMb, " -> [成功]"),
              kSuccess};
  if (applied.nice == applied.nice_before) {
    lines.push_back(tests::text("[进程优先级] 目标已是 ", applied.nice));
  } else {
    lines.push_back(tests::text("[进程优先级] 当前:", applied.nice_before, " 目标:", applied.nice,
                                " -> [成功]"));
    lines.emplace_back(kSuccess);
  }
  if (applied.band == -1) {
    lines.emplace_back("[内存优先级] 目标:-1 -> 未设置, 跳过");
  } else {
    lines = lines + Lines{tests::text("[系统] 内存优先级:", applied.band, " -> [内核: 成功]"),
                          tests::text("[内存优先级] 为:", applied.band), kSuccess};
  }
  if (applied.stripped) {
    lines.emplace_back("[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)");
  }
  return lines + Lines{doneLine(key, pid)};
}

// An entry of the status file, as Installation::status() gives it.
inline std::string statusOf(const std::string& key, pid_t pid, int nice, int band) {
  return tests::text(key, "={n=int ", nice, ";p=int ", band, ";pid=int ", pid, ";};");
}

}  // namespace vorlatch
