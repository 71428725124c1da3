// Look-ups and status writes on two real threads.
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
using tests::Story;

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

}  // namespace
}  // namespace vorlatch
