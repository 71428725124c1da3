// A root-prefix library that cannot resolve paths: the daemon then has no files.
#include <cstdio>
#include <filesystem>
#include <map>
#include <utility>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "config/log_size_cap.h"
#include "config/status_file.h"
#include "log/log_file.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Lines;
using tests::Story;
using namespace std::chrono_literals;

constexpr std::uintmax_t kOversized = 3'000'000;

// Puts everything that the daemon might touch into the story's root: its files where a prefix would
// put them, an oversized log in the working directory, and the files behind the standard streams.
struct Unresolved : Story {
  Unresolved() {
    device.root_prefix_library = VORLATCH_REFUSING_LIBROOT;
    for (const std::string& log : {logFile(), rootPath("/Vorlatch.log")}) {
      tests::writeAll(log, "");
      std::filesystem::resize_file(log, kOversized);
    }
    writePreferences(
        {{"Enabled", true}, {"AppConfigs", Dictionary{{"alpha", Dictionary{{"NiceValue", 5}}}}}});
    std::filesystem::current_path(rootPath(""));
    EXPECT_NE(std::freopen(out().c_str(), "w", stdout), nullptr);
    EXPECT_NE(std::freopen(err().c_str(), "w", stderr), nullptr);
    files_before_ = files();
  }
  [[nodiscard]] std::string out() const { return rootPath("/out"); }
  [[nodiscard]] std::string err() const { return rootPath("/err"); }
  // Each file under the root, with its contents.
  [[nodiscard]] std::map<std::string, std::string> files() const {
    std::map<std::string, std::string> found;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(rootPath(""))) {
      if (entry.is_regular_file()) found[entry.path()] = tests::readAll(entry.path());
    }
    return found;
  }
  // Returns what was written to standard output and standard error; fails if another file changed.
  [[nodiscard]] Lines written() const {
    std::fflush(stdout);
    std::fflush(stderr);
    std::map<std::string, std::string> now = files();
    Lines streams{std::exchange(now.at(out()), ""), std::exchange(now.at(err()), "")};
    EXPECT_TRUE(now == files_before_);  // not EXPECT_EQ, which would print megabytes
    return streams;
  }

 private:
  std::map<std::string, std::string> files_before_;
};

TEST(UnresolvedRoot, OnlyTheStreamsAreWritten) {
  const Unresolved story;
  Story::openLog();
  std::fputs("out", stdout);
  checkAndGenerateDefaultConfig();
  updateStatusFile("alpha", 100, 5, 180);
  updateStatusFile("alpha", 0, 0, 0);
  checkLogSizeAndClearIfNeeded();
  EXPECT_EQ(story.written(), (Lines{"out", "[03-04 05:06:07] [配置] 已生成默认预设参数\n"}));
}

TEST(UnresolvedRoot, TheDaemonRunsSwitchedOff) {
  Unresolved story;
  story.device.launch({.name = "alpha"});
  story.start();
  const Lines startup = story.written();
  EXPECT_NE(startup[1].find("[守护] Vorlatch 后台守护进程初始化完成"), std::string::npos);
  story.device.takeTrace();
  story.run(150ms);
  story.postAndRun();
  story.run(1h);
  EXPECT_EQ(story.takeCalls(), Lines{});
  EXPECT_EQ(story.written(), startup);
}

}  // namespace
}  // namespace vorlatch
