// Two stories that together execute every algorithm of the daemon while calls fail: the first start
// of a fresh installation, and a day of edits, starts, exits and restarts. Each ends with a calm
// phase without faults.
#pragma once

#include <map>
#include <string>

namespace vorlatch::faults {

// The final state of each process by its key, as far as the settings determine it.
using Standing = std::map<std::string, std::string>;

struct Told {
  std::size_t calls_before_calm = 0;
  Standing standing;
};

// Plays the story and compares the daemon with the oracle; throws Mismatch at the first difference.
// With `expected`, every configured target that runs must have that state after one undisturbed
// patrol or tick, and again after one more pass. Only one story per process.
Told playFirstStart(const Standing* expected);
Told playDay(const Standing* expected);

}  // namespace vorlatch::faults
