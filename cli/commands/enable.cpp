// vorlatchctl enable
#include "cli/edit_report.h"

namespace vorlatch::cli {
namespace {

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<EditOptions>();
  addEditOptions(arguments, *options);
  return [options](const Session& session) {
    return editAndReport(session, *options, control::switchDaemon(true));
  };
}

const RegisteredCommand kEnable({
    .name = "enable",
    .description = english("switch the daemon on"),
    .examples = "  vorlatchctl enable",
    .place = 70,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
