// Runs commands of vorlatchctl for the page, in this process: the guards, locks, texts and JSON are
// those of vorlatchctl, and docs/vorlatchctl.md describes them.
#pragma once

#include <string>
#include <vector>

#include "control/translation.h"

namespace vorlatch::web {

using Words = std::vector<std::string>;

// Returns true if the page may run this command line. Commands that wait, or that read or write
// files of the user's choice, are not allowed, nor are their options.
bool isAllowed(const Words& words);

// What a command printed, as JSON texts in one line.
struct CommandResult {
  int status;          // the exit status
  std::string output;  // of `log` a list with an object per line; null if nothing was printed
  std::string error;   // an object with a code and a message; null if the command succeeded
};

// Runs an allowed command line with --json.
CommandResult runCommand(const Words& words, control::Language language);

}  // namespace vorlatch::web
