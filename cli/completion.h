// The words that arguments offer to the shells' completion.
#pragma once

#include "cli/command.h"

namespace vorlatch::cli {

// The words that may stand in place of the last one: commands, options, and what the argument in
// that place offers.
Words wordsToComplete(const Words& words);

Words configuredTargets(const std::string& unfinished);
// Process names and bundle identifiers.
Words runningNames(const std::string& unfinished);
// KEY=, and behind it the values that can be listed.
Words assignments(const std::string& unfinished);
Words settingKeyWords(const std::string& unfinished);

}  // namespace vorlatch::cli
