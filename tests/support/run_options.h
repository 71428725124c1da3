// What a test that runs as long as it is told to takes from its command line.
#pragma once

#include <chrono>
#include <cstdint>

namespace vorlatch::tests {

struct RunOptions {
  std::chrono::seconds duration{10};  // --seconds N
  std::uint64_t seed = 1;             // --seed N
};

// As the command line said.
const RunOptions& runOptions();

// Reads what the test framework has left of the command line; false when it is something else.
bool readRunOptions(int argc, char** argv);

}  // namespace vorlatch::tests
