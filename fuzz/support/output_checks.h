// Checks that apply to all output of vorlatchctl.
#pragma once

#include <string_view>

#include "base/plist_value.h"
#include "fuzz/support/fuzzer.h"

namespace vorlatch::fuzz {

// Expects valid UTF-8 without control characters (other than line ends) and without changes of text
// direction. `may_draw` also permits colours, and the cursor moves and erasures with which `status
// --watch` replaces a table.
void expectHarmless(std::string text, bool may_draw);

// Expects a sequence of JSON values and nothing else.
void expectJson(const std::string& text);

// Returns the word that names the command, or an empty string.
std::string commandOf(const Words& words);
bool holdsPrefix(const Words& words, std::string_view prefix);

// Returns the preferences without everything that the command may change.
plist::Dictionary withoutNamed(plist::Dictionary preferences, const Words& words);

}  // namespace vorlatch::fuzz
