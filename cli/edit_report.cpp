#include "cli/edit_report.h"

#include "config/preferences.h"
#include "control/setting_text.h"

namespace vorlatch::cli {
namespace {

std::string textOf(const plist::Value* value) {
  return value != nullptr ? control::settingText(*value) : tr("(none)");
}

std::string pathText(const std::vector<std::string>& path) {
  std::string text;
  for (const std::string& key : path) text += (text.empty() ? "" : " / ") + key;
  return text;
}

}  // namespace

void addEditOptions(Arguments& arguments, EditOptions& options) {
  arguments.push_back({.name = "--dry-run",
                       .description = english("show the difference and write nothing"),
                       .value = &options.is_dry_run});
  arguments.push_back({.name = "--no-apply",
                       .description = english("do not tell the daemon"),
                       .value = &options.applies,
                       .flag_means = false});
}

ExitStatus editAndReport(const Session& session, const EditOptions& options,
                         const control::Change& change) {
  const control::Edit edit = control::editPreferences(change, !options.is_dry_run);
  const bool posts =
      options.applies && !options.is_dry_run && !control::isIdentical(edit.before, edit.after);
  if (posts) control::postApply();
  reportEdit(session, options, edit, posts);
  return kDone;
}

void reportEdit(const Session& session, const EditOptions& options, const control::Edit& edit,
                bool posted) {
  const std::vector<control::Difference> differences =
      control::differencesBetween(edit.before, edit.after);
  if (session.wants_json) {
    Json changes = Json::array();
    for (const control::Difference& each : differences) {
      changes.push_back({{"path", each.path},
                         {"before", each.before != nullptr ? jsonOf(*each.before) : Json()},
                         {"after", each.after != nullptr ? jsonOf(*each.after) : Json()}});
    }
    print(session, {{"changes", changes},
                    {"written", !options.is_dry_run && !differences.empty()},
                    {"applied", posted}});
    return;
  }
  for (const control::Difference& each : differences) {
    printLine(session,
              pathText(each.path) + ": " + textOf(each.before) + " -> " + textOf(each.after));
  }
  if (differences.empty()) printLine(session, tr("nothing to change"));
  if (options.is_dry_run) printLine(session, tr("nothing was written"));
  // No hint if this edit switched the daemon off: the user knows.
  if (!isEnabled(edit.before) && !isEnabled(edit.after)) {
    printLine(session, tr("the daemon is switched off; vorlatchctl enable switches it on"));
  }
}

}  // namespace vorlatch::cli
