#include "tests/security/operations.h"

#include <cstdio>

#include "config/default_preset.h"
#include "config/log_size_cap.h"
#include "config/preferences.h"
#include "config/status_file.h"
#include "control/failure.h"
#include "control/log_reader.h"
#include "control/preferences_edit.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::tests {
namespace {

void writeToBothStreams() {
  writeTargetSeparator();
  std::fputs("out\n", stdout);
  std::fflush(stdout);
}

// Ignores failures, because the tests check only the effects on files.
void unlessItFails(const std::function<void()>& command) {
  try {
    command();
  } catch (const control::Failure&) {
  }
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation>& all = *new std::vector<Operation>{
      {.name = "OpensTheLog",
       .file = kLogFileName,
       .writes_temporary = false,
       .prepare = [](Story& story) { writeAll(story.logFile(), "old line\n"); },
       .run =
           [] {
             openLog();
             writeToBothStreams();
           }},
      {.name = "ClearsTheLog",
       .file = kLogFileName,
       .writes_temporary = false,
       .prepare =
           [](Story& story) {
             story.writePreferences({{"LogSizeLimit", 10}});
             writeAll(story.logFile(), "longer than it may be\n");
             openLog();
           },
       .run =
           [] {
             checkLogSizeAndClearIfNeeded();
             writeToBothStreams();
           }},
      {.name = "WritesTheStatus",
       .file = kStatusFileName,
       .writes_temporary = true,
       .prepare = [](Story& /*story*/) { updateStatusFile("a", 1, 2, 3); },
       .run = [] { updateStatusFile("b", 4, 5, 6); }},
      {.name = "WritesThePreset",
       .file = kPreferencesFileName,
       .writes_temporary = true,
       .prepare = [](Story& /*story*/) {},
       .run = checkAndGenerateDefaultConfig},
      {.name = "ReadsThePreferences",
       .file = kPreferencesFileName,
       .writes_temporary = false,
       .prepare = [](Story& story) { story.writePreferences(defaultPreset()); },
       .run = [] { loadPreferences(); }},
      {.name = "EditsThePreferences",
       .file = kPreferencesFileName,
       .writes_temporary = true,
       .prepare = [](Story& story) { story.writePreferences(defaultPreset()); },
       .run =
           [] {
             unlessItFails([] {
               control::editPreferences(
                   [](plist::Dictionary& preferences) {
                     preferences.insert_or_assign(keys::kEnabled, false);
                   },
                   true);
             });
           }},
      {.name = "ShowsTheLog",
       .file = kLogFileName,
       .writes_temporary = false,
       .prepare = [](Story& story) { writeAll(story.logFile(), "old line\n"); },
       .run =
           [] {
             unlessItFails([] {
               control::LogReader(control::daemonFile(kLogFileName)).readNew([](const auto&) {});
             });
           }},
  };
  return all;
}

std::ostream& operator<<(std::ostream& out, const Operation& operation) {
  return out << operation.name;
}

}  // namespace vorlatch::tests
