// vorlatchctl apply
#include "cli/completion.h"
#include "cli/edit_report.h"
#include "control/observation.h"

namespace vorlatch::cli {
namespace {

struct Options {
  Words targets;
  bool is_again = false;
};

void requireDaemon() {
  if (control::daemonRuns()) return;
  failCouldNot(
      tr("the daemon does not run, so nothing is applied; it applies what the preferences say when "
         "it is started"));
}

ExitStatus apply(const Session& session, const Options& options) {
  if (options.is_again && options.targets.empty()) {
    failWrongUsage(tr("TARGET is missing; vorlatchctl apply --help says more"));
  }
  if (!options.is_again && !options.targets.empty()) {
    failWrongUsage(tr("without --again, apply takes no target"));
  }
  if (options.is_again) {
    requireDaemon();
    return editAndReport(session, {}, control::applyAgain(options.targets),
                         control::Previous::NotKept);
  }
  control::postApply();
  requireDaemon();
  if (session.wants_json) print(session, {{"applied", true}});
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("with --again: the targets"),
                .value = &options->targets,
                .offer = configuredTargets},
               {.name = "--again",
                .description = english("have unchanged targets applied anew, too"),
                .value = &options->is_again}};
  return [options](const Session& session) { return apply(session, *options); };
}

const RegisteredCommand kApply({
    .name = "apply",
    .description =
        english("tell the daemon that the preferences changed; it passes over unchanged targets"),
    .examples = "  vorlatchctl apply\n  vorlatchctl apply --again com.tencent.xin",
    .place = 100,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
