#include "cli/edit_report.h"

#include "config/preferences.h"
#include "control/observation.h"
#include "control/setting_text.h"

namespace vorlatch::cli {
namespace {

std::string textOf(const plist::Value* value) {
  return value != nullptr ? control::settingText(*value) : tr("(none)");
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
                         const control::Change& change, control::Previous previous) {
  return applyAndReport(session, options,
                        control::editPreferences(change, !options.is_dry_run, previous));
}

ExitStatus applyAndReport(const Session& session, const EditOptions& options,
                          const control::Edit& edit, const Json& more) {
  const bool is_written = edit.changes_file && !options.is_dry_run;
  const bool is_posted = is_written && options.applies;
  if (is_posted) control::postApply();
  const bool is_applied = is_posted && control::daemonRuns();
  const std::vector<control::Difference> differences =
      control::differencesBetween(edit.before, edit.after);
  if (session.wants_json) {
    Json changes = Json::array();
    for (const control::Difference& each : differences) changes.push_back(jsonOf(each));
    Json json{{"changes", changes}, {"written", is_written}, {"applied", is_applied}};
    json.update(more);
    print(session, json);
    return kDone;
  }
  for (const control::Difference& each : differences) printLine(session, textOf(each));
  if (!edit.changes_file) printLine(session, tr("nothing to change"));
  if (edit.changes_file && differences.empty()) {
    printLine(session, tr("only the form of the file changes, no value in it"));
  }
  if (options.is_dry_run) printLine(session, tr("nothing was written"));
  // No hint if this edit switched the daemon off: the user knows.
  if (!isEnabled(edit.before) && !isEnabled(edit.after)) {
    printLine(session, tr("the daemon is switched off; vorlatchctl enable switches it on"));
  } else if (is_posted && !is_applied) {
    printLine(session, tr("the daemon does not run; it applies this when it is started"));
  }
  return kDone;
}

std::string pathText(const std::vector<std::string>& path) {
  std::string text;
  for (const std::string& key : path) text += (text.empty() ? "" : " / ") + key;
  return text;
}

std::string textOf(const control::Difference& difference) {
  return pathText(difference.path) + ": " + textOf(difference.before) + " -> " +
         textOf(difference.after);
}

Json jsonOf(const control::Difference& difference) {
  const auto json = [](const plist::Value* value) {
    return value != nullptr ? jsonOf(*value) : Json();
  };
  return {{"path", difference.path},
          {"before", json(difference.before)},
          {"after", json(difference.after)}};
}

}  // namespace vorlatch::cli
