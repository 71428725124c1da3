// vorlatchctl preset
#include "cli/edit_report.h"
#include "config/default_preset.h"

namespace vorlatch::cli {
namespace {

struct Options {
  EditOptions edit;
  bool replaces_targets = false;  // also those that are configured already
  bool replaces_file = false;     // the whole file, readable or not
};

std::string presetFile(const std::string& path) {
  return control::writtenForm(path, {.dictionary = defaultPreset()});
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {
      {.name = "--replace",
       .description = english("also over targets that are configured already"),
       .value = &options->replaces_targets},
      {.name = "--replace-file",
       .description = english("write the preset in place of the whole file, even of a damaged one"),
       .value = &options->replaces_file}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) {
    if (options->replaces_file) {
      return applyAndReport(session, options->edit,
                            control::replacePreferences(presetFile, control::Sameness::Dictionary,
                                                        !options->edit.is_dry_run));
    }
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
