// vorlatchctl remove
#include "cli/completion.h"
#include "cli/edit_report.h"

namespace vorlatch::cli {
namespace {

struct Options {
  Words targets;
  EditOptions edit;
};

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("the targets"),
                .value = &options->targets,
                .offer = configuredTargets,
                .is_required = true}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) {
    return editAndReport(session, options->edit, control::removeTargets(options->targets));
  };
}

const RegisteredCommand kRemove({
    .name = "remove",
    .description = english("take targets out of the preferences: the daemon hands them back"),
    .examples = "  vorlatchctl remove kbd sharingd",
    .place = 60,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
