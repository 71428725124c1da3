// The ways in which each call can fail.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/faults/call.h"

namespace vorlatch::faults {

enum class Way : std::uint8_t {
  Refuses,  // does nothing and returns the result and the error
  Acts,     // makes the call, but returns the result and the error
  Part,     // makes a part of the call
  Half,     // makes the call, but returns half of its result
  Gone,     // the process exits before the call
  Goes,     // the process exits right after the call
};

struct Outcome {
  const char* name;
  Way way;
  std::int64_t result = 0;
  int error = 0;
};

// Whether the daemon treats the two outcomes of the call alike. Error numbers matter to it only
// where an interrupted read or write continues, and where a file may be missing.
bool areAlike(const Call& call, const Outcome& one, const Outcome& other);

// The possible faults of the call; empty if it cannot fail.
std::vector<Outcome> outcomesOf(const Call& call);

}  // namespace vorlatch::faults
