// The help of vorlatchctl.
#pragma once

#include <cstddef>
#include <string>

#include "cli/command.h"

namespace vorlatch::cli {

// Returns the help of a command or, for null, of the program. Wraps lines at words to fit into
// `columns`; 0: 80.
std::string helpText(const Command* command, const Arguments& arguments, std::size_t columns);

}  // namespace vorlatch::cli
