// vorlatchctl import
#include "base/files.h"
#include "cli/edit_report.h"
#include "config/property_list_guard.h"
#include "control/guards.h"
#include "control/transfer.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::string file;
  EditOptions edit;
  bool forces = false;
};

// Refuses limits that would do harm, unless the preferences have them already.
void refuseNewHarm(const std::string& path, const plist::Dictionary& imported) {
  const auto bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  const auto before = bytes ? control::dictionaryIn(*bytes) : std::nullopt;
  control::refuseHarm(before.value_or(plist::Dictionary{}), imported);
}

ExitStatus importFrom(const Session& session, const Options& options) {
  const control::UserFile file = control::readUserFile(options.file);
  const auto contents = [&](const std::string& path) {
    if (!options.forces) refuseNewHarm(path, file.preferences.dictionary);
    control::requireWhole(path, file.preferences);
    return control::writtenForm(path, file.preferences);
  };
  const control::Edit edit = control::replacePreferences(contents, control::Sameness::Dictionary,
                                                         !options.edit.is_dry_run);
  for (const control::Finding& each : file.findings) {
    if (session.wants_json) break;
    printError(session, tr("warning: %s: %s", pathText(each.path), each.message));
  }
  return applyAndReport(session, options.edit, edit,
                        {{"warnings", control::findingsJson(file.findings)}});
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "FILE",
                .description = english("a property list, XML or binary"),
                .value = &options->file,
                .is_required = true}};
  addEditOptions(arguments, options->edit);
  arguments.push_back({.name = "--force",
                       .description = english("set a memory limit that would do harm, too"),
                       .value = &options->forces});
  return [options](const Session& session) { return importFrom(session, *options); };
}

const RegisteredCommand kImport({
    .name = "import",
    .description = english("replace the preferences with those in a file"),
    .examples = "  vorlatchctl import backup.plist --dry-run\n  vorlatchctl import backup.plist",
    .place = 96,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
