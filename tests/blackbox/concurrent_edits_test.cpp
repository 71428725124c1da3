// Many vorlatchctl at once on one file: no edit is lost, and whoever reads finds a whole file.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/base/describe.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

constexpr int kEditors = 8;
constexpr int kEditsOfEach = 25;

// Runs one vorlatchctl for each of its edits, one after the other.
struct Editor {
  int number;
  int edits = 0;
  std::unique_ptr<ChildProcess> process;

  // Another target and another nice value for each edit.
  [[nodiscard]] std::string target(int edit) const {
    return "target-" + std::to_string(number) + "-" + std::to_string(edit);
  }
  [[nodiscard]] int nice(int edit) const { return edit - number - 5; }

  // Starts the next vorlatchctl when the last one has ended; false once all have.
  bool goOn(const Installation& installation) {
    if (process != nullptr && !process->hasEnded()) return true;
    if (process != nullptr) {
      EXPECT_EQ(process->exitCode(), 0) << target(edits);
    }
    process.reset();
    if (edits == kEditsOfEach) return false;
    ++edits;
    const std::string setting = "NiceValue=" + std::to_string(nice(edits));
    process = installation.startControl({.arguments = {"set", target(edits), setting}});
    return true;
  }
};

TEST(ConcurrentEdits, KeepEveryEditAndAWholeFile) {
  Installation installation;
  const auto preferences = [&] {
    return platform::parsePropertyList(tests::readAll(installation.preferencesPath()));
  };
  std::vector<Editor> editors(kEditors);
  for (int i = 0; i < kEditors; ++i) editors[static_cast<std::size_t>(i)].number = i;

  std::size_t targets_seen = 0;
  int contents_seen = 0;
  for (bool at_work = true; at_work;) {
    at_work = false;
    for (Editor& editor : editors) at_work = editor.goOn(installation) || at_work;
    const auto list = preferences();
    ASSERT_TRUE(list && list->as<plist::Dictionary>()) << "after " << targets_seen << " targets";
    const auto targets = appConfigs(*list->as<plist::Dictionary>());
    // Each edit adds one; none ever takes one away.
    ASSERT_GE(targets.size(), targets_seen);
    if (targets.size() > targets_seen) ++contents_seen;
    targets_seen = targets.size();
  }
  EXPECT_GE(contents_seen, kEditsOfEach);  // the test looked while they wrote

  plist::Dictionary all;
  for (const Editor& editor : editors) {
    for (int edit = 1; edit <= kEditsOfEach; ++edit) {
      all.emplace(editor.target(edit), plist::Dictionary{{"NiceValue", editor.nice(edit)}});
    }
  }
  EXPECT_EQ(test::describe(*preferences()), test::describe(preferencesWith(all)));
  EXPECT_EQ(tests::modeOf(installation.preferencesPath()), 0666U);
  EXPECT_EQ(filesIn(installation.preferencesDirectory()), Lines{kPreferencesFileName});
}

}  // namespace
}  // namespace vorlatch
