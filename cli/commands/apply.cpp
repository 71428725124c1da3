// vorlatchctl apply
#include "cli/command.h"
#include "control/edits.h"
#include "control/observation.h"

namespace vorlatch::cli {
namespace {

ExitStatus apply(const Session& session) {
  control::postApply();
  if (control::Observation::now({}).daemon_pids.empty()) {
    failCouldNot(tr(
        "the daemon does not run, so nothing is applied; it applies what the preferences say when "
        "it is started"));
  }
  if (session.wants_json) print(session, {{"applied", true}});
  return kDone;
}

const RegisteredCommand kApply({
    .name = "apply",
    .description =
        english("tell the daemon that the preferences changed; it passes over unchanged targets"),
    .examples = "  vorlatchctl apply",
    .place = 100,
    .prepare = [](Arguments&) { return Run(apply); },
});

}  // namespace
}  // namespace vorlatch::cli
