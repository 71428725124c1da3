// Entries that an attacker puts at the path of one of the daemon's files, before or during an
// operation. Neither the entry nor what it points at may change.
#include <fcntl.h>

#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "config/log_size_cap.h"
#include "config/preferences.h"
#include "config/status_file.h"
#include "control/failure.h"
#include "control/history.h"
#include "control/log_reader.h"
#include "control/preferences_edit.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "rootprefix/pref_path.h"
#include "tests/security/intercepted_calls.h"
#include "tests/security/planted.h"
#include "tests/support/story.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;

// An operation of the daemon or vorlatchctl on a file in a directory that anybody may change. Both
// functions run in the story's root.
struct Operation {
  std::string name;
  std::string file;  // the file that it works on
  std::function<void()> run;
  bool writes_temporary = false;  // whether it creates a temporary file beside it
  std::function<void(Story&)> prepare = [](Story& /*story*/) {};  // creates the files that it needs
  std::vector<Plant> plants = {};                                 // put in the file's place
};

// Prints the name for gtest.
std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

void writeToBothStreams() {
  writeTargetSeparator();
  std::fputs("out\n", stdout);
  std::fflush(stdout);
}

void openAndWriteLog() {
  openLog();
  writeToBothStreams();
}

void clearAndWriteLog() {
  checkLogSizeAndClearIfNeeded();
  writeToBothStreams();
}

// The commands may fail, because the tests check only the effects on files.
void editPreferences() {
  try {
    const auto edit = [](plist::Dictionary& preferences) {
      preferences.insert_or_assign(keys::kEnabled, false);
    };
    control::editPreferences(edit, true);
  } catch (const control::Failure&) {
  }
}

void takeEditBack() {
  try {
    control::takeBack(1, true);
  } catch (const control::Failure&) {
  }
}

void showLog() {
  try {
    control::LogReader(control::daemonFile(kLogFileName)).readNew([](const auto&) {});
  } catch (const control::Failure&) {
  }
}

void writeOldLog(Story& story) {
  writeAll(story.logFile(), "old line\n");
}

void openLargeLog(Story& story) {
  story.writePreferences({{"LogSizeLimit", 10}});
  writeAll(story.logFile(), "longer than it may be\n");
  openLog();
}

void writeStatus(Story& /*story*/) {
  updateStatusFile("a", 1, 2, 3);
}

void writePreset(Story& story) {
  story.writePreferences(defaultPreset());
}

void writeAndEditPreset(Story& story) {
  writePreset(story);
  editPreferences();
}

const std::string kCopyName = std::string(kPreferencesFileName) + ".undo.1";

std::vector<Operation> operationsAt(const std::vector<Plant>& plants) {
  std::vector<Operation> operations = {
      {"OpensTheLog", kLogFileName, openAndWriteLog, false, writeOldLog},
      {"ClearsTheLog", kLogFileName, clearAndWriteLog, false, openLargeLog},
      {"WritesTheStatus", kStatusFileName, [] { updateStatusFile("b", 4, 5, 6); }, true,
       writeStatus},
      {"WritesThePreset", kPreferencesFileName, checkAndGenerateDefaultConfig, true},
      {"ReadsThePreferences", kPreferencesFileName, [] { loadPreferences(); }, false, writePreset},
      {"EditsThePreferences", kPreferencesFileName, editPreferences, true, writePreset},
      {"TakesAnEditBack", kCopyName, takeEditBack, false, writeAndEditPreset},
      {"ShowsTheLog", kLogFileName, showLog, false, writeOldLog},
  };
  for (Operation& operation : operations) operation.plants = plants;
  return operations;
}

// Whether the call opens what exists and is not a regular file.
bool opensSpecial(const FileCall& call) {
  // O_CREAT opens nothing that exists, and O_DIRECTORY asks for a directory.
  if (call.name != "open" || (call.arguments[0] & (O_CREAT | O_DIRECTORY)) != 0) return false;
  std::error_code error;
  const auto status = fs::status(call.path, error);
  return fs::exists(status) && !fs::is_regular_file(status);
}

class PlantedEntry : public testing::TestWithParam<Operation> {
 protected:
  // For each plant, repeats the operation and puts the plant at `place` before the first, second,
  // ... file call. Returns how often it was put.
  int exchange(const std::function<std::optional<std::string>()>& place) {
    int exchanged = 0;
    for (const Plant& plant : GetParam().plants) {
      bool has_happened = true;
      for (int call = 1; has_happened; ++call) {
        begin();
        const BeforeFileCall action(call, [&] {
          if (const auto found = place()) putAt(*found, plant);
        });
        GetParam().run();
        has_happened = action.hasHappened();
        if (!planted_) continue;
        ++exchanged;
        expectNothingChanged(plant.name + " before file call " + std::to_string(call));
      }
    }
    return exchanged;
  }

  [[nodiscard]] std::string path() const { return story_.file(GetParam().file); }
  // The path of the temporary file beside the file, if there is one.
  [[nodiscard]] std::optional<std::string> temporary() const {
    for (const auto& entry : fs::directory_iterator(story_.file(""))) {
      if (entry.path().string().starts_with(path() + ".")) return entry.path();
    }
    return std::nullopt;
  }

  // Creates the operation's files and untouched victims.
  void begin() {
    for (const auto& entry : fs::directory_iterator(story_.file(""))) fs::remove_all(entry.path());
    GetParam().prepare(story_);
    planted_.reset();
    victims_.emplace(story_.rootPath("/elsewhere"));
  }
  void putAt(const std::string& place, const Plant& plant) {
    planted_.emplace(plant, place, *victims_);
    before_ = asAllStands();
  }
  void expectNothingChanged(const std::string& when) const {
    EXPECT_EQ(asAllStands(), before_) << when;
    EXPECT_FALSE(victims_->isSecretIn(story_.file(""))) << when;
  }

 private:
  [[nodiscard]] std::string asAllStands() const {
    return planted_->asItStands() + victims_->asTheyStand();
  }

  Story story_;
  std::optional<Victims> victims_;
  std::optional<Planted> planted_;
  std::string before_;
};

TEST_P(PlantedEntry, BeforehandLeadsNowhereAndIsNotOpened) {
  for (const Plant& plant : GetParam().plants) {
    begin();
    putAt(path(), plant);
    std::vector<std::string> opened;
    {
      const Intercepted calls([&](const FileCall& call, const auto& real) {
        if (opensSpecial(call)) opened.push_back(call.path);
        return real(false);
      });
      GetParam().run();
    }
    expectNothingChanged(plant.name);
    EXPECT_EQ(opened, std::vector<std::string>{}) << plant.name;
  }
}

TEST_P(PlantedEntry, BetweenAnyTwoFileCallsLeadsNowhere) {
  // Each plant was put more than once.
  EXPECT_GT(exchange([&] { return path(); }), static_cast<int>(GetParam().plants.size()));
}

TEST_P(PlantedEntry, UnderTheTemporaryNameLeadsNowhere) {
  EXPECT_EQ(exchange([&] { return temporary(); }) > 0, GetParam().writes_temporary);
}

INSTANTIATE_TEST_SUITE_P(Each, PlantedEntry, testing::ValuesIn(operationsAt(plants())),
                         testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(PrivilegedEach, PlantedEntry,
                         testing::ValuesIn(operationsAt(devicePlants())),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace vorlatch::tests
