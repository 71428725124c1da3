// What holds for all that vorlatchctl prints.
#pragma once

#include <string_view>

#include "base/plist_value.h"
#include "fuzz/support/fuzzer.h"

namespace vorlatch::fuzz {

// UTF-8 with nothing in it that commands a terminal: no control but the line's end, no change of
// direction. `may_draw`: but for the colours, and the moves and erasures by which `status --watch`
// shows one table in another's place.
void expectHarmless(std::string_view text, bool may_draw);

// One JSON value after another, and nothing else.
void expectJson(std::string_view text);

// The word that names the command; empty when there is none.
std::string commandOf(const Words& words);
// Whether the command may change the preferences.
bool isEdit(std::string_view command);

// What differs between the two was named by the words.
void expectOnlyNamedChanges(const plist::Dictionary& before, const plist::Dictionary& after,
                            const Words& words);

}  // namespace vorlatch::fuzz
