// vorlatchctl set
#include "cli/completion.h"
#include "cli/edit_report.h"
#include "config/preferences.h"
#include "config/target_settings.h"
#include "control/guards.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::string target;
  Words assignments;
  EditOptions edit;
  bool forces = false;
};

Words targetsAndRunningNames(const std::string& unfinished) {
  Words words = configuredTargets(unfinished);
  for (std::string& name : runningNames(unfinished)) words.push_back(std::move(name));
  return words;
}

ExitStatus set(const Session& session, const Options& options) {
  const control::Change change = control::setSettings(options.target, options.assignments);
  const auto guarded = [&](plist::Dictionary& preferences) {
    const plist::Dictionary before = preferences;
    change(preferences);
    if (!options.forces) control::refuseHarm(before, preferences);
  };
  const control::Edit edit = control::editPreferences(guarded, !options.edit.is_dry_run);
  // A target that was there before needs no second warning.
  const bool is_new = !appConfigs(edit.before).contains(options.target);
  std::vector<control::Finding> warnings;
  if (is_new) warnings = control::warningsOnTarget(options.target, edit.after);
  for (const control::Finding& warning : warnings) {
    if (session.wants_json) break;
    printError(session, tr("warning: %s", warning.message));
  }
  return applyAndReport(session, options.edit, edit,
                        {{"warnings", control::findingsJson(warnings)}});
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("the target"),
                .value = &options->target,
                .offer = targetsAndRunningNames,
                .is_required = true},
               {.name = "KEY=VALUE",
                .description = english("what to set"),
                .value = &options->assignments,
                .offer = assignments,
                .is_required = true}};
  addEditOptions(arguments, options->edit);
  arguments.push_back({.name = "--force",
                       .description = english("set a memory limit that would do harm, too"),
                       .value = &options->forces});
  return [options](const Session& session) { return set(session, *options); };
}

std::vector<Term> keys() {
  std::vector<Term> terms;
  terms.reserve(kSettingKeys.size());
  for (const SettingKey& row : kSettingKeys) terms.push_back({row.key, translated(row.meaning)});
  return terms;
}

const RegisteredCommand kSet({
    .name = "set",
    .description = english("change a target's settings, or add a target"),
    .examples = "  vorlatchctl set backboardd JetsamPriority=highest NiceValue=-20\n"
                "  vorlatchctl set com.tencent.xin MemLimitActive=1500 --dry-run",
    .place = 40,
    .prepare = prepare,
    .keys = keys,
});

}  // namespace
}  // namespace vorlatch::cli
