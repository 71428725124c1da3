// The command-line options of tests whose duration is configurable.
#pragma once

#include <chrono>
#include <cstdint>

namespace vorlatch::tests {

struct RunOptions {
  std::chrono::seconds duration{10};  // --seconds N
  std::uint64_t seed = 1;             // --seed N
  std::uint64_t stories = 1;          // --stories N
};

const RunOptions& runOptions();

}  // namespace vorlatch::tests
