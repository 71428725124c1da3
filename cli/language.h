// The language of vorlatchctl's texts.
#pragma once

#include <string>

#include "cli/terminal.h"

namespace vorlatch::cli {

// Sets the language of all texts to the one asked for, "en" or "zh"; if it is empty, to that of the
// environment (LC_ALL, LC_MESSAGES, LANG) or else of the system. Throws a Failure for another name.
void chooseLanguage(const std::string& asked_for, const Terminal& terminal);

}  // namespace vorlatch::cli
