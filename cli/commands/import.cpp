// vorlatchctl import
#include "cli/edit_report.h"
#include "control/transfer.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::string file;
  EditOptions edit;
};

ExitStatus importFrom(const Session& session, const Options& options) {
  const control::UserFile file = control::readUserFile(options.file);
  const auto contents = [&file](const std::string& path) {
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
