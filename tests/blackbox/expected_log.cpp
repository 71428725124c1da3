#include "tests/blackbox/expected_log.h"

#include <unistd.h>

namespace vorlatch {
namespace {

constexpr const char* kSuccess = "[内核] ：成功";
constexpr const char* kFailure = "[内核] ：失败";
constexpr int kDefaultTaskLimitMb = 2048;

std::string numbered(const std::string& before, int number, const std::string& after = "") {
  return before + std::to_string(number) + after;
}

}  // namespace

Lines operator+(Lines lines, const Lines& more) {
  lines.insert(lines.end(), more.begin(), more.end());
  return lines;
}

Lines startLines(pid_t daemon, bool privileged) {
  const Lines priorities =
      privileged
          ? Lines{"[系统] 设定进程优先级 -> [内核: 成功]", kSuccess,
                  "[系统] 设定内存优先级(210) -> [内核] 成功", "[内存优先级] 为:210", kSuccess}
          : Lines{"[系统] 设定进程优先级 -> [内核: 失败]", kFailure,
                  "[系统] 设定内存优先级(21) -> [内核] 失败",
                  numbered("[内存优先级] 未在内核优先级列表中找到 PID:", daemon), kFailure};
  return Lines{kChapterSeparator, numbered("[守护] PID:", daemon)} + priorities +
         Lines{"[守护] Vorlatch 后台守护进程初始化完成", kChapterSeparator};
}

Lines startLines(pid_t daemon) {
  return startLines(daemon, geteuid() == 0);
}

Lines startedLines(const std::string& key, pid_t pid) {
  return {kTargetSeparator, numbered("[进程] 目标: " + key + " 已启动 PID: ", pid, " ")};
}

Lines editedLines(const std::string& key, pid_t pid) {
  return {kTargetSeparator, numbered("[配置] 目标: " + key + " PID: ", pid)};
}

Lines exitedLines(const std::string& key) {
  return {kTargetSeparator, "[进程] 目标: " + key + " 已退出"};
}

Lines restoredLines(const std::string& key, pid_t pid) {
  return {kTargetSeparator, numbered("[恢复] 目标: " + key + " PID: ", pid),
          numbered("[守护] " + key + " PID:", pid)};
}

Lines tickedLines(const std::string& key, int interval_s, pid_t pid) {
  return {kTargetSeparator,
          numbered("[守护] 目标: " + key + " | 检测: ", interval_s, numbered("s | PID: ", pid))};
}

Lines removedLines() {
  return {kTargetSeparator, "[配置] 已有进程从列表移除，已恢复默认"};
}

Lines switchedOffLines() {
  return {kTargetSeparator, "[配置] 生效开关已关闭，已挂起守护进程并还原默认状态"};
}

Lines appliedLines(const std::string& key, pid_t pid, const Applied& applied) {
  const int limit_mb = applied.memory_limit_mb;
  const int limit_now_mb = limit_mb > 0 ? limit_mb : kDefaultTaskLimitMb;
  Lines lines{numbered("[内存限制] 目标 Act:", limit_mb,
                       numbered(" Inact:0 | 最终 Act:", limit_now_mb,
                                numbered(" Inact:", kDefaultTaskLimitMb, " -> [成功]"))),
              kSuccess};
  if (applied.nice == applied.nice_before) {
    lines.push_back(numbered("[进程优先级] 目标已是 ", applied.nice));
  } else {
    lines.push_back(numbered("[进程优先级] 当前:", applied.nice_before,
                             numbered(" 目标:", applied.nice, " -> [成功]")));
    lines.emplace_back(kSuccess);
  }
  if (applied.band == -1) {
    lines.emplace_back("[内存优先级] 目标:-1 -> 未设置, 跳过");
  } else {
    lines = lines + Lines{numbered("[系统] 内存优先级:", applied.band, " -> [内核: 成功]"),
                          numbered("[内存优先级] 为:", applied.band), kSuccess};
  }
  if (applied.stripped) {
    lines.emplace_back("[状态剥离] 目标: 剥离系统托管并开启强锁 -> [操作: 成功] [内核]: 0)");
  }
  lines.push_back(numbered("[守护] " + key + " PID:", pid, " 完成"));
  return lines;
}

}  // namespace vorlatch
