// Plays each random story in a process of its own, because the daemon keeps its state for the life
// of its process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch::tests::random {

// The indices of the steps to play, in order.
using Kept = std::vector<std::size_t>;

struct Counts {
  std::uint64_t steps = 0;
  std::uint64_t work_items = 0;
  std::uint64_t lines = 0;  // of the log
};

struct Outcome {
  Counts counts;
  std::string failure;  // empty if the daemon did exactly what the oracle says
};

Outcome play(std::uint64_t seed, const Kept& kept);

// All steps of a seed's story, and a minimal subset that still fails.
Kept allSteps(std::uint64_t seed);
Kept shrink(std::uint64_t seed, Kept failing);

}  // namespace vorlatch::tests::random
