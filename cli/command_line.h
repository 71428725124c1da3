// Runs vorlatchctl: from its arguments to its exit status.
#pragma once

#include <string>
#include <vector>

#include "cli/terminal.h"

namespace vorlatch::cli {

// Runs the command in the arguments (without the program's name) and returns its exit status.
// Reports a Failure or a lack of memory on the terminal.
int runCommandLine(const std::vector<std::string>& arguments, Terminal& terminal);

}  // namespace vorlatch::cli
