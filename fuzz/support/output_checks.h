// Checks that apply to all output of vorlatchctl.
#pragma once

#include <string_view>

#include "base/plist_value.h"
#include "fuzz/support/fuzzer.h"

namespace vorlatch::fuzz {

// Expects valid UTF-8 without control characters (other than line ends) and without changes of text
// direction. `may_draw` also permits colours, and the cursor moves and erasures with which `status
// --watch` replaces a table.
void expectHarmless(std::string_view text, bool may_draw);

// Expects a sequence of JSON values and nothing else.
void expectJson(std::string_view text);

// Returns the word that names the command, or an empty string.
std::string commandOf(const Words& words);
// Whether the command may change the preferences.
bool isEdit(std::string_view command);

// Expects that every difference between the two dictionaries was named by the words.
void expectOnlyNamedChanges(const plist::Dictionary& before, const plist::Dictionary& after,
                            const Words& words);

}  // namespace vorlatch::fuzz
