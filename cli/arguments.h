// Parses the user's arguments into a command to run.
#pragma once

#include <string>
#include <vector>

#include "cli/command.h"

namespace vorlatch::cli {

// A parsed command line.
struct Request {
  bool wants_json = false;
  Run run;
};

// Throws a Failure with kWrongUsage and advice. With --help, the request prints the help.
Request parseArguments(std::vector<std::string> arguments);

// Returns the arguments that every command takes.
Arguments commonArguments(bool& wants_json);

}  // namespace vorlatch::cli
