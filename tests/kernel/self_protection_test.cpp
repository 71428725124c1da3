#include "kernel/self_protection.h"

#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::kChapterRule;
using tests::Lines;
using tests::Story;

constexpr int kSetPriority = 2;

struct Daemon : Story {
  Daemon() { openLog(); }
  Lines protect() {
    protect_daemon_itself();
    return takeLog();
  }
  const std::string pid = std::to_string(getpid());
};

const Lines kReadBackCalls{"memorystatus_control(1, 0, 0, null, 0) = 24",
                           "memorystatus_control(1, 0, 0, buffer, 264) = 24"};

Lines operator+(Lines first, const Lines& second) {
  first.insert(first.end(), second.begin(), second.end());
  return first;
}

TEST(SelfProtection, FallsBackTo210WhereTheKernelRefuses999) {
  Daemon daemon;
  EXPECT_EQ(
      daemon.protect(),
      (Lines{"[守护] PID:" + daemon.pid, "[系统] 设定进程优先级 -> [内核: 成功]", "[内核] ：成功",
             "[系统] 设定内存优先级(210) -> [内核] 成功", "[内存优先级] 为:210", "[内核] ：成功",
             "[守护] Vorlatch 后台守护进程初始化完成", kChapterRule}));
  EXPECT_EQ(daemon.takeCalls(),
            (Lines{"setpriority(0, self, -20) = 0", "getpriority(0, self) = -20",
                   "memorystatus_control(2, self, 1, {e7030000 00000000 00000000 00000000}, 16)"
                   " = -1 errno 22",
                   "memorystatus_control(2, self, 1, {d2000000 00000000 00000000 00000000}, 16)"
                   " = 0"} +
             kReadBackCalls));
}

TEST(SelfProtection, FallsBackTo21OnAnOlderKernel) {
  Daemon daemon;
  daemon.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  EXPECT_EQ(daemon.protect()[3], "[系统] 设定内存优先级(21) -> [内核] 成功");
  EXPECT_EQ(daemon.device.jetsam(getpid()).effective_band, 21);
}

TEST(SelfProtection, TakesOneCallWhereTheKernelAccepts999) {
  Daemon daemon;
  daemon.device.script({.function = "memorystatus_control", .command = kSetPriority, .result = 0});
  const Lines log = daemon.protect();
  EXPECT_EQ(log[3], "[系统] 设定内存优先级(999) -> [内核] 成功");
  EXPECT_EQ(log[5], "[内核] ：已被系统覆盖 (设置:999 实际:180)");
  EXPECT_EQ(daemon.takeCalls(),
            (Lines{"setpriority(0, self, -20) = 0", "getpriority(0, self) = -20",
                   "memorystatus_control(2, self, 1, {e7030000 00000000 00000000 00000000}, 16)"
                   " = 0"} +
             kReadBackCalls));
}

TEST(SelfProtection, ReadsBackAfterThreeRefusals) {
  Daemon daemon;
  daemon.device.script(
      {.function = "memorystatus_control", .command = kSetPriority, .result = -1, .error = EPERM});
  EXPECT_EQ(daemon.protect(),
            (Lines{"[守护] PID:" + daemon.pid, "[系统] 设定进程优先级 -> [内核: 成功]",
                   "[内核] ：成功", "[系统] 设定内存优先级(21) -> [内核] 失败",
                   "[内存优先级] 为:180", "[内核] ：已被系统覆盖 (设置:21 实际:180)",
                   "[守护] Vorlatch 后台守护进程初始化完成", kChapterRule}));
  EXPECT_EQ(daemon.takeCalls(),
            (Lines{"setpriority(0, self, -20) = 0", "getpriority(0, self) = -20",
                   "memorystatus_control(2, self, 1, {e7030000 00000000 00000000 00000000}, 16)"
                   " = -1 errno 1",
                   "memorystatus_control(2, self, 1, {d2000000 00000000 00000000 00000000}, 16)"
                   " = -1 errno 1",
                   "memorystatus_control(2, self, 1, {15000000 00000000 00000000 00000000}, 16)"
                   " = -1 errno 1"} +
             kReadBackCalls));
}

TEST(SelfProtection, AnyOtherFailureEndsTheLadderAtOnce) {
  Daemon daemon;
  daemon.device.script({.function = "memorystatus_control", .command = kSetPriority, .result = 5});
  EXPECT_EQ(daemon.protect()[3], "[系统] 设定内存优先级(999) -> [内核] 失败");
  EXPECT_EQ(daemon.device.takeTrace({"memorystatus_control"}).size(), 3U);
}

TEST(SelfProtection, RefusedNiceValueIsAlwaysAFailure) {
  Daemon daemon;
  daemon.device.find(getpid())->nice_value = -20;
  daemon.device.script({.function = "setpriority", .result = -1, .error = EACCES});
  const Lines log = daemon.protect();
  EXPECT_EQ(log[1], "[系统] 设定进程优先级 -> [内核: 失败]");
  EXPECT_EQ(log[2], "[内核] ：失败");
}

TEST(SelfProtection, ReportsAnOverriddenNiceValue) {
  Daemon daemon;
  daemon.device.find(getpid())->overriding_nice = -5;
  const Lines log = daemon.protect();
  EXPECT_EQ(log[1], "[系统] 设定进程优先级 -> [内核: 成功]");
  EXPECT_EQ(log[2], "[内核] ：已被系统覆盖 (实际: -5)");
}

TEST(SelfProtection, AnUnreadableListSaysThatTheStateIsLost) {
  Daemon daemon;
  daemon.device.script(
      {.function = "memorystatus_control", .command = 1, .result = -1, .error = EPERM});
  const Lines log = daemon.protect();
  EXPECT_EQ(log[4], "[内存优先级] 未在内核优先级列表中找到 PID:" + daemon.pid);
  EXPECT_EQ(log[5], "[内核] ：调用成功但状态丢失");
}

}  // namespace
}  // namespace vorlatch
