// What the shells' completion asks for.
#pragma once

#include <string>
#include <vector>

#include "cli/failure.h"
#include "cli/session.h"

namespace vorlatch::cli {

inline constexpr const char* kCompletionCommand = "__complete";

// Prints, one a line, the words that may stand in place of the last one: commands, options, keys,
// configured targets, running process names, bands. Never fails: where nothing can be known, there
// is nothing to offer.
ExitStatus completeCommand(const Session& session, const std::vector<std::string>& words);

}  // namespace vorlatch::cli
