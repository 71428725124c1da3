// Lists candidates for the shells' completion.
#pragma once

#include "cli/command.h"

namespace vorlatch::cli {

// Returns the candidates for the last word: commands, options, or what the argument at this
// position offers.
Words wordsToComplete(const Words& words);

Words configuredTargets(const std::string& unfinished);
// Returns process names and bundle identifiers.
Words runningNames(const std::string& unfinished);
// Before the =, returns each KEY=; after it, each KEY=VALUE, if the values can be listed.
Words assignments(const std::string& unfinished);
Words settingKeyWords(const std::string& unfinished);

}  // namespace vorlatch::cli
