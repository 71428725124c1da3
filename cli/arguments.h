// From the words that a user typed to the work of a command.
#pragma once

#include <string>
#include <vector>

#include "cli/command.h"

namespace vorlatch::cli {

// What the arguments ask for.
struct Request {
  bool wants_json = false;
  Run run;
};

// A Failure of wrong usage says what would be right. With --help, the request prints the help.
Request parseArguments(std::vector<std::string> arguments);

// What every command takes beside its own arguments.
Arguments commonArguments(bool& wants_json);

}  // namespace vorlatch::cli
