// vorlatchctl unset
#include "cli/completion.h"
#include "cli/edit_report.h"

namespace vorlatch::cli {
namespace {

struct Options {
  std::string target;
  Words keys;
  EditOptions edit;
};

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "TARGET",
                .description = english("the target"),
                .value = &options->target,
                .offer = configuredTargets,
                .is_required = true},
               {.name = "KEY",
                .description = english("what to take out"),
                .value = &options->keys,
                .offer = settingKeyWords,
                .is_required = true}};
  addEditOptions(arguments, options->edit);
  return [options](const Session& session) {
    return editAndReport(session, options->edit,
                         control::unsetSettings(options->target, options->keys));
  };
}

const RegisteredCommand kUnset({
    .name = "unset",
    .description = english("take keys out of a target's settings"),
    .examples = "  vorlatchctl unset backboardd CheckInterval",
    .place = 50,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
