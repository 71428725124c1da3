// vorlatchctl help
#include "cli/arguments.h"
#include "cli/command.h"

namespace vorlatch::cli {
namespace {

ExitStatus help(const Session& session, const std::string& name) {
  ArgumentParser parser;
  if (!name.empty()) parser.take(name);
  parser.take("--help");
  return parser.finish()(session);
}

Words names(const std::string& /*unfinished*/) {
  return commandNames();
}

Run prepare(Arguments& arguments) {
  const auto name = std::make_shared<std::string>();
  arguments = {{.name = "COMMAND",
                .description = english("the command; without one, the list of all"),
                .value = name.get(),
                .offer = names}};
  return [name](const Session& session) { return help(session, *name); };
}

const RegisteredCommand kHelp({
    .name = "help",
    .description = english("what a command does and takes"),
    .examples = "  vorlatchctl help set",
    .place = 190,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
