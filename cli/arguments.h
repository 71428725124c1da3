// The commands and options of vorlatchctl, and what each argument stands for.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "cli/commands.h"

namespace vorlatch::cli {

// What the arguments ask for.
struct Request {
  bool wants_json = false;
  std::function<ExitStatus(const Session&)> run;
};

// A Failure of wrong usage says what would be right. With --help, the request prints the help.
Request parseArguments(std::vector<std::string> arguments);

std::vector<std::string> commandNames();
// The options of a command with their dashes, those of every command among them; or of these only
// the ones that a value follows, short forms too.
std::vector<std::string> optionNames(const std::string& command, bool with_value_only = false);

}  // namespace vorlatch::cli
