// Edits in a story: what is said, whether the daemon is told, and what is written.
#pragma once

#include <sys/stat.h>

#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {

// Said behind an edit of preferences that are switched off.
inline constexpr const char* kOffHint =
    "the daemon is switched off; vorlatchctl enable switches it on\n";
inline constexpr const char* kApplied = "posts 1\n";

inline std::string xml(const Dictionary& preferences) {
  return platform::writeXmlPropertyList(preferences);
}

inline std::string writes(const std::string& bytes) {
  return "writes\n" + bytes;
}
inline std::string writes(const Dictionary& preferences) {
  return writes(xml(preferences));
}

class EditStory : public ControlStory {
 public:
  EditStory() {
    device.observe(kApplyNotificationName, [this] { ++posts_; });
    daemon = launchDaemon();
  }

  // Types the command and lets the daemon hear what was posted. Gives the answer and what came of
  // it: "posts" with the number of posts that reached the daemon, "writes" with the bytes of a file
  // that was written. Fails the test when a written file has not the mode 0666, when the file that
  // it replaced is not kept as the newest of at most ten, or when the command leaves another file
  // beside it.
  std::string edit(const Arguments& arguments) {
    const auto files = filesBeside();
    const auto before = version();
    auto expected_copies = copies();
    const bool replaces = std::filesystem::exists(preferencesFile());
    Story::run(0ms);
    posts_ = 0;
    std::string result = answer(arguments);
    Story::run(0ms);
    if (posts_ > 0) result += "posts " + std::to_string(posts_) + "\n";
    if (version() != before) {
      result += writes(bytes());
      EXPECT_EQ(modeOf(preferencesFile()), 0666U);
      const int last = expected_copies.empty() ? 0 : expected_copies.rbegin()->first;
      if (replaces) expected_copies.emplace(last + 1, before.second);
      if (expected_copies.size() > 10) expected_copies.erase(expected_copies.begin());
    }
    EXPECT_EQ(copies(), expected_copies);
    EXPECT_EQ(filesBeside(), files);
    return result;
  }
  std::string edit(const std::string& line) { return edit(wordsOf(line)); }

  // The edit prints the changes and turns the preferences from before into after; with --dry-run it
  // writes nothing, and with --no-apply it does not tell the daemon. The hint is printed last.
  void expectEdit(const Arguments& arguments, const Dictionary& before, const std::string& changes,
                  const Dictionary& after, const std::string& hint = "") {
    SCOPED_TRACE(testing::PrintToString(arguments));
    writePreferences(before);
    EXPECT_EQ(edit(arguments + Lines{"--dry-run"}), changes + "nothing was written\n" + hint);
    EXPECT_EQ(edit(arguments + Lines{"--no-apply"}), changes + hint + writes(after));
    writePreferences(before);
    EXPECT_EQ(edit(arguments), changes + hint + kApplied + writes(after));
  }
  // The command gives this answer and changes nothing, with and without the option.
  void expectRefusal(const Arguments& arguments, const std::string& option,
                     const std::string& refusal) {
    SCOPED_TRACE(testing::PrintToString(arguments));
    EXPECT_EQ(edit(arguments), refusal);
    EXPECT_EQ(edit(arguments + Lines{option}), refusal);
  }

  [[nodiscard]] std::string bytes() const { return readAll(preferencesFile()); }

  [[nodiscard]] std::string copyPath(int number) const {
    return preferencesFile() + ".undo." + std::to_string(number);
  }
  // The kept files by their numbers.
  [[nodiscard]] std::map<int, std::string> copies() const {
    std::map<int, std::string> copies;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(file(""), missing)) {
      const std::string path = entry.path();
      if (!path.starts_with(copyPrefix())) continue;
      copies.emplace(std::stoi(path.substr(copyPrefix().size())), readAll(path));
      EXPECT_EQ(modeOf(path), 0666U) << path;
    }
    return copies;
  }

  std::int32_t daemon;

 private:
  [[nodiscard]] std::string copyPrefix() const { return preferencesFile() + ".undo."; }
  // Differs when the file was written again.
  [[nodiscard]] std::pair<ino_t, std::string> version() const {
    struct stat status {};
    stat(preferencesFile().c_str(), &status);
    return {status.st_ino, bytes()};
  }
  [[nodiscard]] std::set<std::filesystem::path> filesBeside() const {
    std::set<std::filesystem::path> paths;
    std::error_code missing;
    for (const auto& entry : std::filesystem::directory_iterator(file(""), missing)) {
      const bool is_copy = entry.path().string().starts_with(copyPrefix());
      if (entry.path() != preferencesFile() && !is_copy) paths.insert(entry.path());
    }
    return paths;
  }

  int posts_ = 0;
};

}  // namespace vorlatch::tests
