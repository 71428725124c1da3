#include "kernel/self_protection.h"

#include <unistd.h>

#include <cerrno>

#include <gtest/gtest.h>

#include "platform/memorystatus.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using tests::Lines;

// A daemon whose kernel the test scripts.
struct Daemon : tests::Story {
  Daemon() { openLog(); }
  void bandCallGives(int result, int error = 0) const {
    device.script({.function = "memorystatus_control",
                   .command = platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES,
                   .result = result,
                   .error = error});
  }
  // Protects the daemon. Returns the log without the lines that are always the same.
  Lines protect() {
    device.takeTrace();
    protect_daemon_itself();
    Lines log = takeLog();
    EXPECT_EQ(log.size(), 8U);
    EXPECT_EQ(log[0], "[守护] PID:" + pid);
    EXPECT_EQ(log[6], "[守护] Vorlatch 后台守护进程初始化完成");
    EXPECT_EQ(log[7], tests::kChapterRule);
    return {log.begin() + 1, log.begin() + 6};
  }
  // The bands that were asked for, with each result; the calls around them are always the same.
  [[nodiscard]] Lines askedBands() const {
    const Lines calls = takeCalls();
    EXPECT_EQ(calls[0], "setpriority(0, self, -20) = 0");
    EXPECT_EQ(calls[1], "getpriority(0, self) = -20");
    EXPECT_EQ(Lines(calls.end() - 2, calls.end()),
              (Lines{"memorystatus_control(1, 0, 0, null, 0) = 24",
                     "memorystatus_control(1, 0, 0, buffer, 264) = 24"}));
    return {calls.begin() + 2, calls.end() - 2};
  }
  const std::string pid = std::to_string(getpid());
};

const Lines kNiceValueHeld{"[系统] 设定进程优先级 -> [内核: 成功]", "[内核] ：成功"};

std::string asked(const char* band, const std::string& result) {
  return std::string("memorystatus_control(2, self, 1, {") + band +
         " 00000000 00000000 00000000}, 16) = " + result;
}

TEST(SelfProtection, AsksForLowerBandsWhereTheKernelRefuses) {
  Daemon daemon;
  EXPECT_EQ(daemon.protect(), (kNiceValueHeld + Lines{"[系统] 设定内存优先级(210) -> [内核] 成功",
                                                      "[内存优先级] 为:210", "[内核] ：成功"}));
  EXPECT_EQ(daemon.askedBands(), (Lines{asked("e7030000", "-1 errno 22"), asked("d2000000", "0")}));
  daemon.device.kernel.generation = model::KernelGeneration::Xnu4903To8020;
  EXPECT_EQ(daemon.protect(), (kNiceValueHeld + Lines{"[系统] 设定内存优先级(21) -> [内核] 成功",
                                                      "[内存优先级] 为:21", "[内核] ：成功"}));
}

TEST(SelfProtection, TakesOneCallWhereTheKernelAccepts999) {
  Daemon daemon;
  daemon.bandCallGives(0);
  EXPECT_EQ(
      daemon.protect(),
      (kNiceValueHeld + Lines{"[系统] 设定内存优先级(999) -> [内核] 成功", "[内存优先级] 为:180",
                              "[内核] ：已被系统覆盖 (设置:999 实际:180)"}));
  EXPECT_EQ(daemon.askedBands(), Lines{asked("e7030000", "0")});
}

TEST(SelfProtection, ReadsBackAfterThreeRefusals) {
  Daemon daemon;
  daemon.bandCallGives(-1, EPERM);
  EXPECT_EQ(daemon.protect(), (kNiceValueHeld + Lines{"[系统] 设定内存优先级(21) -> [内核] 失败",
                                                      "[内存优先级] 为:180",
                                                      "[内核] ：已被系统覆盖 (设置:21 实际:180)"}));
  EXPECT_EQ(daemon.askedBands(),
            (Lines{asked("e7030000", "-1 errno 1"), asked("d2000000", "-1 errno 1"),
                   asked("15000000", "-1 errno 1")}));
}

TEST(SelfProtection, AnyOtherFailureEndsTheLadderAtOnce) {
  Daemon daemon;
  daemon.bandCallGives(5);
  EXPECT_EQ(daemon.protect()[2], "[系统] 设定内存优先级(999) -> [内核] 失败");
  EXPECT_EQ(daemon.askedBands(), Lines{asked("e7030000", "5")});
}

TEST(SelfProtection, ReportsTheNiceValueAndALostBand) {
  Daemon daemon;
  daemon.device.find(getpid())->overriding_nice = -5;
  EXPECT_EQ(daemon.protect()[1], "[内核] ：已被系统覆盖 (实际: -5)");
  daemon.device.find(getpid())->nice_value = -20;
  daemon.device.script({.function = "setpriority", .result = -1, .error = EACCES});
  daemon.device.script(
      {.function = "memorystatus_control", .command = 1, .result = -1, .error = EPERM});
  EXPECT_EQ(daemon.protect(),  // a refusal is a failure even if the value is there
            (Lines{"[系统] 设定进程优先级 -> [内核: 失败]", "[内核] ：失败",
                   "[系统] 设定内存优先级(210) -> [内核] 成功",
                   "[内存优先级] 未在内核优先级列表中找到 PID:" + daemon.pid,
                   "[内核] ：调用成功但状态丢失"}));
}

}  // namespace
}  // namespace vorlatch
