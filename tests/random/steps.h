// The steps of a random story. No step depends on another, so that a failing story can be reduced
// by leaving steps out.
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
  std::uint64_t seed = 0;
  std::vector<Step> steps;
  std::size_t before_start = 0;  // how many of them come before the daemon starts
};

// The story of a seed.
Plan planOf(std::uint64_t seed);

// Whether the intervals and waits of a story are all short or all long.
enum class Pace : std::uint8_t { Quick, Slow };

// An edit of the preferences, or a change of their file.
Step anyEdit(Dice& dice, Pace pace);
// Steps that write preferences which switch the daemon on for some targets.
std::vector<Step> firstPreferences(Dice& dice, Pace pace);

Step anyLaunch(Dice& dice);
// A process starts, exits or changes.
Step anyProcessStep(Dice& dice);
// A bundle is installed or changed.
Step anyBundle(Dice& dice);

// The kernel refuses, returns wrong results, is slow, or behaves normally again.
Step anyRefusal(Dice& dice);
// Changes the version of the kernel.
Step anyKernel(Dice& dice);

}  // namespace vorlatch::tests::random
