// vorlatchctl from its arguments to its exit status.
#pragma once

#include <string>
#include <vector>

#include "cli/terminal.h"

namespace vorlatch::cli {

// Runs the command that the arguments (without the program's name) ask for. Everything that it has
// to say goes to the terminal; nothing is thrown.
int runCommandLine(std::vector<std::string> arguments, Terminal& terminal);

}  // namespace vorlatch::cli
