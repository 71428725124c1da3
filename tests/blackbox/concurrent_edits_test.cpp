// Many vorlatchctl at once on one file: no edit is lost, and whoever reads finds a whole file.
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "platform/property_list.h"
#include "tests/blackbox/installation.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

constexpr int kEditors = 8;
constexpr int kEditsOfEach = 25;

std::string targetOf(int editor, int edit) {
  return "target-" + std::to_string(editor) + "-" + std::to_string(edit);
}

// Another one for each edit of an editor.
int niceSetBy(int editor, int edit) {
  return edit - editor - 5;
}

// One editor: a vorlatchctl for each of its edits, one after the other.
class Editor {
 public:
  Editor(const Installation& installation, int number)
      : installation_(installation), number_(number) {}

  // Goes on when its vorlatchctl has ended; false once the last one has.
  bool goOn() {
    if (process_ != nullptr && !process_->hasEnded()) return true;
    if (process_ != nullptr) {
      EXPECT_EQ(process_->exitCode(), 0) << targetOf(number_, edits_);
      process_.reset();
    }
    if (edits_ == kEditsOfEach) return false;
    ++edits_;
    const std::string setting = "NiceValue=" + std::to_string(niceSetBy(number_, edits_));
    Launch launch;
    launch.arguments = {"set", targetOf(number_, edits_), setting};
    process_ = std::make_unique<ChildProcess>(installation_.path("usr/bin/vorlatchctl"), launch);
    return true;
  }

 private:
  const Installation& installation_;
  const int number_;
  int edits_ = 0;
  std::unique_ptr<ChildProcess> process_;
};

// The targets in the file; nothing when it is not whole.
std::optional<TargetDictionaries> targetsIn(const std::string& path) {
  std::optional<plist::Value> list = platform::parsePropertyList(tests::readAll(path));
  const auto* preferences = list ? list->as<plist::Dictionary>() : nullptr;
  if (preferences == nullptr) return std::nullopt;
  return appConfigs(*preferences);
}

plist::Dictionary everyEdit() {
  plist::Dictionary targets;
  for (int editor = 0; editor < kEditors; ++editor) {
    for (int edit = 1; edit <= kEditsOfEach; ++edit) {
      targets.insert_or_assign(targetOf(editor, edit),
                               plist::Dictionary{{"NiceValue", niceSetBy(editor, edit)}});
    }
  }
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

TEST(ConcurrentEdits, AreAllKeptAndTheFileIsWholeAtEveryMoment) {
  Installation installation;
  std::vector<std::unique_ptr<Editor>> editors;
  editors.reserve(kEditors);
  for (int i = 0; i < kEditors; ++i) editors.push_back(std::make_unique<Editor>(installation, i));

  std::size_t targets_seen = 0;
  int contents_seen = 0;
  for (bool at_work = true; at_work;) {
    at_work = false;
    for (const auto& editor : editors) at_work = editor->goOn() || at_work;
    const std::optional<TargetDictionaries> targets = targetsIn(installation.preferencesPath());
    ASSERT_TRUE(targets) << "after " << targets_seen << " targets";
    // Each edit adds one; none ever takes one away.
    ASSERT_GE(targets->size(), targets_seen);
    if (targets->size() > targets_seen) ++contents_seen;
    targets_seen = targets->size();
  }
  EXPECT_GE(contents_seen, kEditsOfEach);  // it looked while they wrote

  EXPECT_EQ(textOf(*platform::parsePropertyList(tests::readAll(installation.preferencesPath()))),
            textOf(everyEdit()));
  EXPECT_EQ(tests::modeOf(installation.preferencesPath()), 0666U);
  EXPECT_EQ(filesIn(installation.preferencesDirectory()), Lines{kPreferencesFileName});
}

}  // namespace
}  // namespace vorlatch
