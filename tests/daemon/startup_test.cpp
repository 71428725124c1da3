#include "daemon/startup.h"

#include <filesystem>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using namespace std::chrono_literals;
using plist::Dictionary;
using tests::Lines;
using tests::Story;

TEST(Startup, RemovesWhatAKilledDaemonLeftHalfWritten) {
  const Story story;
  const std::string left[] = {story.statusFile() + ".tmp.aB3xYz",
                              story.preferencesFile() + ".tmp.000000"};
  const std::string others[] = {story.statusFile() + ".tmp.aB3xYz4",
                                story.preferencesFile() + ".backup"};
  for (const std::string& path : left) tests::writeAll(path, "half");
  for (const std::string& path : others) tests::writeAll(path, "another's");
  story.start();
  for (const std::string& path : left) EXPECT_FALSE(std::filesystem::exists(path)) << path;
  for (const std::string& path : others) EXPECT_TRUE(std::filesystem::exists(path)) << path;
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

}  // namespace
}  // namespace vorlatch
