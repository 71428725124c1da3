// vorlatchctl preset
#include "cli/edit_report.h"
#include "config/default_preset.h"
#include "config/preferences.h"

namespace vorlatch::cli {
namespace {

struct Options {
  EditOptions edit;
  bool replaces_targets = false;  // also those that are configured already
  bool replaces_file = false;     // the whole file, readable or not
};

// A file that cannot be read counts as empty, because it is replaced in any case.
plist::Dictionary readableAt(const std::string& path) {
  try {
    return control::readStoredPreferences(path).dictionary;
  } catch (const control::Failure&) {
    return {};
  }
}

ExitStatus replaceFile(const Session& session, const EditOptions& options) {
  const std::string path = control::daemonFile(kPreferencesFileName);
  const Descriptor lock = control::lockPreferences();
  const control::Edit edit{.before = readableAt(path), .after = defaultPreset()};
  const bool writes = !options.is_dry_run && !control::isIdentical(edit.before, edit.after);
  if (writes) control::writeStoredPreferences(path, {.dictionary = edit.after});
  const bool posts = options.applies && writes;
  if (posts) control::postApply();
  reportEdit(session, options, edit, posts);
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {
      {.name = "--replace",
       .description = english("also over targets that are configured already"),
       .value = &options->replaces_targets},
      {.name = "--replace-file",
       .description = english("write the preset in place of the whole file, whatever stands there"),
       .value = &options->replaces_file}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) {
    if (options->replaces_file) return replaceFile(session, options->edit);
    return editAndReport(session, options->edit, control::addPreset(options->replaces_targets));
  };
}

const RegisteredCommand kPreset({
    .name = "preset",
    .description = english("put the default preset's targets in"),
    .examples = "  vorlatchctl preset --dry-run",
    .place = 90,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
