// What happens in a story, step by step. A step says what it does and needs no other one, so that a
// story may be told with some of them left out.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tests/random/stage.h"
#include "tests/support/dice.h"

namespace vorlatch::tests::random {

struct Step {
  std::string text;
  std::function<void(Stage&)> act;
};

struct Plan {
  std::vector<Step> steps;
  std::size_t before_start = 0;  // how many of them come before the daemon starts
};

// The story of a seed.
Plan planOf(std::uint64_t seed);

// What a story draws from, in which the intervals and waits are short or long together.
enum class Pace : std::uint8_t { Quick, Slow };

// One edit of the preferences, or of their file.
Step anyEdit(Dice& dice, Pace pace);
// A file that switches the daemon on for some targets, one after the other.
std::vector<Step> firstPreferences(Dice& dice, Pace pace);

Step anyLaunch(Dice& dice);
// A process comes, goes or changes.
Step anyProcessStep(Dice& dice);
// A bundle comes, or says something else.
Step anyBundle(Dice& dice);

// The kernel refuses, lies, takes its time, or is itself again.
Step anyRefusal(Dice& dice);
// Which kernel it is.
Step anyKernel(Dice& dice);

}  // namespace vorlatch::tests::random
