// Plays each story in a process of its own, because the daemon keeps its state for the life of its
// process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/faults/fault_injector.h"

namespace vorlatch::tests::random {

// The indices of the steps to play, in order.
using Kept = std::vector<std::size_t>;

struct Outcome {
  std::string failure;                     // empty if the daemon did exactly what the oracle says
  std::vector<faults::FailingCall> calls;  // if no fault is planned, all that can fail
};

// Plays these steps of the seed's story, with faults if they are given.
Outcome play(std::uint64_t seed, const Kept& kept,
             const std::optional<std::vector<faults::Fault>>& faults = std::nullopt);

// All steps of a seed's story.
Kept allSteps(std::uint64_t seed);
// Reduces a failing story to the steps that are needed. Returns them and the failure.
std::string shrunk(std::uint64_t seed);

}  // namespace vorlatch::tests::random
