// vorlatchctl disable
#include "cli/edit_report.h"

namespace vorlatch::cli {
namespace {

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<EditOptions>();
  addEditOptions(arguments, *options);
  return [options](const Session& session) {
    return editAndReport(session, *options, control::switchDaemon(false));
  };
}

const RegisteredCommand kDisable({
    .name = "disable",
    .description = english("switch the daemon off: every target is handed back"),
    .examples = "  vorlatchctl disable",
    .place = 80,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
