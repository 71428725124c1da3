// The two queues interleaved: in any order of the ready work, the final state is the same.
#include <algorithm>
#include <barrier>
#include <map>
#include <thread>

#include <gtest/gtest.h>

#include "config/status_file.h"
#include "proc/process_lookup.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

class Interleaving : public testing::TestWithParam<std::uint64_t> {};

TEST_P(Interleaving, PatrolPassTimerAndRestoreCoincide) {
  Story story;
  story.device.scheduler.shuffleWith(GetParam());
  const auto held = story.device.launch({.name = "held", .nice_value = 3});
  const auto watched = story.device.launch({.name = "watched", .nice_value = 3});
  const auto leaving = story.device.launch({.name = "leaving", .nice_value = 3});
  const Dictionary held_settings{{"NiceValue", -7}};
  const Dictionary watched_settings{{"NiceValue", -8}, {"CheckInterval", 600}};
  story.writeTargets(
      {{"held", held_settings}, {"watched", watched_settings}, {"leaving", held_settings}});
  story.start();
  story.run(1800s - 150ms);
  for (const auto pid : {held, watched, leaving}) story.device.find(pid)->nice_value = 9;
  story.writeTargets({{"held", held_settings}, {"watched", watched_settings}});
  story.post();
  // Runs the patrol, the pass that removes a target, and a tick soon after, in any order.
  story.run(150ms);
  story.run(600s);
  EXPECT_EQ(story.device.find(held)->nice_value, -7);
  EXPECT_EQ(story.device.find(watched)->nice_value, -8);
  EXPECT_EQ(story.device.find(leaving)->nice_value, 0);
  EXPECT_EQ(story.status(),
            (Dictionary{{"held", Dictionary{{"pid", held}, {"n", -7}, {"p", 0}}},
                        {"watched", Dictionary{{"pid", watched}, {"n", -8}, {"p", 0}}}}));
  const Lines log = story.rereadLog();
  EXPECT_EQ(std::count(log.begin(), log.end(), "[全局守护] 1800s 周期巡检完成。"), 1);
  EXPECT_EQ(std::count(log.begin(), log.end(), "[配置] 已有进程从列表移除，已恢复默认"), 1);
}

// Launches apps with different identifiers, each in its own bundle. The first is listed last,
// because the list has the newest process first.
std::map<std::string, std::int32_t> launchApps(const Story& story, int count) {
  std::map<std::string, std::int32_t> launched;
  for (int i = 0; i < count; ++i) {
    const std::string identifier = "app-" + std::to_string(i);
    const std::string path =
        story.installApp(identifier + ".app", Dictionary{{"CFBundleIdentifier", identifier}});
    launched[identifier] = story.device.launch({.name = "App", .executable_path = path});
  }
  return launched;
}

// Like a sweep on the worker queue and a tick on the debounce queue at the same time.
TEST(RealThreads, LookUpAndRecordAtOnceAndLoseNothing) {
  Story story;
  const auto apps = launchApps(story, 40);
  story.device.is_tracing = false;  // threads may then only read the device at once
  std::barrier both(2);
  const auto record = [&](const std::string& name, const auto& pid_of) {
    std::size_t recorded = 0;
    both.arrive_and_wait();
    for (const auto& [identifier, pid] : apps) {
      const std::int32_t found = pid_of(identifier);
      both.arrive_and_wait();
      updateStatusFile(name + identifier, found, 1, 2);
      both.arrive_and_wait();
      recorded += 2;
      EXPECT_EQ(story.status().size(), recorded);
    }
  };
  std::thread sweep([&] {
    record("sweep-", [](const auto& key) { return pidIn(getRunningProcessMap(), key); });
  });
  std::thread tick([&] { record("tick-", getPIDForBundleID); });
  sweep.join();
  tick.join();
  Dictionary expected;
  for (const auto& [identifier, pid] : apps) {
    for (const char* name : {"sweep-", "tick-"}) {
      expected.insert_or_assign(name + identifier, Dictionary{{"pid", pid}, {"n", 1}, {"p", 2}});
    }
  }
  EXPECT_EQ(story.status(), expected);
}

INSTANTIATE_TEST_SUITE_P(Seed, Interleaving, testing::Range<std::uint64_t>(1, 21));

}  // namespace
}  // namespace vorlatch
