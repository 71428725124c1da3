// The ways in which each call of the daemon can fail, or answer what the daemon has to check.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tests/simulated/device.h"

namespace vorlatch::faults {

struct Outcome {
  std::string name;
  std::optional<int> result = std::nullopt;  // what the daemon gets; otherwise the real result
  int error = 0;
  bool acts = false;          // makes the call although the daemon gets another result
  bool in_part = false;       // makes half of the call
  bool exits_before = false;  // the process that the call is about exits
  bool exits_after = false;
  std::optional<std::string> buffer = std::nullopt;  // what the call leaves in its buffer
  std::uint64_t takes_ns = 0;
};

// The kind of a call of the kernel or the process table: its function and, where it has several
// meanings, the meaning.
std::string kindOf(std::string_view function, int command, bool has_buffer);
// All these kinds.
const std::vector<std::string>& kernelKinds();

// The outcomes of a kind of call; empty if it cannot fail. For a call about another process they
// include its exit. Error numbers among which the daemon makes no difference stand for each other:
// `number` selects one of them.
std::vector<Outcome> outcomesOf(const std::string& kind, bool about_process, std::size_t number);

// The outcome as the simulated device carries it out, for every process.
simulated::Script scriptOf(const std::string& kind, const Outcome& outcome);

}  // namespace vorlatch::faults
