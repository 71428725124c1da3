// Marks texts that vorlatchctl shows in the user's language.
#pragma once

namespace vorlatch {

// Returns the text unchanged. scripts/fix collects the marked texts for the translators; see
// control/translation.h.
constexpr const char* english(const char* text) {
  return text;
}

}  // namespace vorlatch
