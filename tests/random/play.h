// Stories, each played in a process of its own, as the daemon keeps what it knows for as long as
// its process lives.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vorlatch::tests::random {

// Which steps of a seed's story are told, in their order.
using Kept = std::vector<std::size_t>;

struct Counts {
  std::uint64_t steps = 0;
  std::uint64_t pieces_of_work = 0;
  std::uint64_t lines = 0;  // of the log
};

struct Outcome {
  Counts counts;
  std::string failure;  // empty when the daemon did all that the oracle says, and nothing else
};

Outcome play(std::uint64_t seed, const Kept& kept);

// The whole story; and as few of its steps as still fail.
Kept allSteps(std::uint64_t seed);
Kept shrink(std::uint64_t seed, Kept failing);

}  // namespace vorlatch::tests::random
