// Two stories that together visit every algorithm of the daemon, each told with calls that fail:
// the first start of a fresh installation, and a day of edits, starts, exits and restarts. Each
// ends in a calm in which nothing fails any more.
#pragma once

#include <map>
#include <string>

namespace vorlatch::faults {

// How each process stands in the end, as far as its target's settings say, by its key.
using Standing = std::map<std::string, std::string>;

struct Told {
  std::size_t calls_before_calm = 0;
  Standing standing;
};

// Tells the story and holds the daemon to the oracle all the way; throws Mismatch where it leaves
// them. With `expected`, every configured target that runs must stand so after one undisturbed
// patrol or tick, and again after one more pass. One story a process.
Told tellFirstStart(const Standing* expected);
Told tellDay(const Standing* expected);

}  // namespace vorlatch::faults
