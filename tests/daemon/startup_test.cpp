#include "daemon/startup.h"

#include <unistd.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "config/preferences.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::kChapterRule;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

Lines bannerOfFirstStart() {
  return {kChapterRule,
          "[配置] 已生成默认预设参数",
          "[守护] PID:" + std::to_string(getpid()),
          "[系统] 设定进程优先级 -> [内核: 成功]",
          "[内核] ：成功",
          "[系统] 设定内存优先级(210) -> [内核] 成功",
          "[内存优先级] 为:210",
          "[内核] ：成功",
          "[守护] Vorlatch 后台守护进程初始化完成",
          kChapterRule};
}

TEST(Startup, FromNothingMakesTheLogAndThePreset) {
  Story story;
  story.start();
  EXPECT_EQ(story.takeLog(), bannerOfFirstStart());
  EXPECT_EQ(tests::modeOf(story.logFile()), 0666U);
  EXPECT_EQ(tests::modeOf(story.preferencesFile()), 0666U);
  EXPECT_EQ(loadPreferences(), defaultPreset());
}

TEST(Startup, RemovesWhatAKilledDaemonLeftHalfWritten) {
  Story story;
  const std::vector<std::string> left{story.statusFile() + ".tmp.aB3xYz",
                                      story.preferencesFile() + ".tmp.000000"};
  const std::vector<std::string> others{story.statusFile() + ".tmp.aB3xYz4",
                                        story.preferencesFile() + ".backup"};
  for (const std::string& path : left) tests::writeAll(path, "half");
  for (const std::string& path : others) tests::writeAll(path, "another's");
  story.start();
  for (const std::string& path : left) EXPECT_FALSE(std::filesystem::exists(path)) << path;
  for (const std::string& path : others) EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

TEST(Startup, AppendsToAnExistingLogOfAnySize) {
  Story story;
  const std::string old_log = std::string(std::size_t{3} * 1024 * 1024, 'x') + "\n";
  tests::writeAll(story.logFile(), old_log);
  story.start();
  EXPECT_TRUE(tests::readAll(story.logFile())
                  .starts_with(old_log + "[03-04 05:06:07] " + kChapterRule + "\n"));
}

TEST(Startup, MakesQueuesTimersAndObserverInOrder) {
  Story story;
  story.writePreferences({});
  story.start();
  EXPECT_EQ(story.device.takeTrace({"makeSerialQueue", "startTimer", "cancelTimer",
                                    "observeNotification", "runMainLoop"}),
            (Lines{"makeSerialQueue(\"com.zel.vorlatch.debounce\")",
                   "makeSerialQueue(\"com.zel.vorlatch.worker\")",
                   "startTimer(com.zel.vorlatch.debounce, 1800000000000, 1800000000000, 5000000000)"
                   " = timer 1",
                   "observeNotification(\"com.zel.vorlatch/ApplyLimits\")", "runMainLoop()",
                   "startTimer(com.zel.vorlatch.debounce, 150000000, never, 0) = timer 2"}));
}

TEST(Startup, TheFirstPassComesThroughTheDebounceTimer) {
  Story story;
  const auto pid = story.device.launch({.name = "backboardd"});
  story.start();
  story.takeLog();
  story.run(150ms - 1ns);
  EXPECT_EQ(story.takeLog(), Lines{});
  story.run(1ns);
  EXPECT_EQ(story.takeLog()[1], "[进程] 目标: backboardd 已启动 PID: " + std::to_string(pid) + " ");
}

TEST(Startup, UsesItsDirectoryOnceItIsThere) {
  Story story;
  std::filesystem::remove_all(story.rootPath("/var"));
  const auto pid = story.device.launch({.name = "backboardd", .nice_value = 5});
  story.startAndSettle();
  story.run(2h);
  EXPECT_EQ(story.takeCalls(), Lines{});
  EXPECT_FALSE(std::filesystem::exists(story.rootPath("/var")));
  std::filesystem::create_directories(story.file(""));
  story.writeTargets({{"backboardd", Dictionary{{"NiceValue", 3}}}});
  story.postAndRun();
  EXPECT_EQ(story.status(),
            (Dictionary{{"backboardd", Dictionary{{"pid", pid}, {"n", 3}, {"p", 0}}}}));
  EXPECT_FALSE(std::filesystem::exists(story.logFile()));
}

TEST(Startup, RunsSwitchedOffOnUnparsablePreferences) {
  Story story;
  tests::writeAll(story.preferencesFile(), "no property list");
  story.device.launch({.name = "backboardd", .nice_value = 5});
  story.startAndSettle();
  story.run(2h);
  EXPECT_EQ(story.takeLog(), Lines{});
  EXPECT_EQ(story.takeCalls(), Lines{});
  EXPECT_EQ(tests::readAll(story.preferencesFile()), "no property list");
}

}  // namespace
}  // namespace vorlatch
