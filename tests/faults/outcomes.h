// How each call can fail.
#pragma once

#include <cstdint>
#include <vector>

#include "tests/faults/call.h"

namespace vorlatch::faults {

enum class Way : std::uint8_t {
  Refuses,  // does nothing, and gives the result and the error
  Acts,     // does what it is asked, and gives them all the same
  Part,     // does a part of it
  Half,     // does what it is asked, and tells of half of it
  Gone,     // the process is gone before the call
  Goes,     // the process is gone right after it
};

struct Outcome {
  const char* name;
  Way way;
  std::int64_t result = 0;
  int error = 0;
};

// Whether the daemon has no reason to tell the two outcomes of the call apart. It looks at an
// error's number only where an interrupted read or write is to go on, and where a file may be
// missing.
bool areAlike(const Call& call, const Outcome& one, const Outcome& other);

// What may become of the call other than what was asked; empty for one that cannot fail.
std::vector<Outcome> outcomesOf(const Call& call);

}  // namespace vorlatch::faults
