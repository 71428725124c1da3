// The two functions that each fuzzer defines; the rest is shared. A fuzzer feeds its input to the
// system under test and checks what the tests would check. A failed expectation or a crash is a
// finding.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace vorlatch::fuzz {

using Words = std::vector<std::string>;

// Runs one input. Afterwards the state must be as before, so that inputs do not depend on each
// other.
void feed(std::string_view input);

// The keys and texts from which the mutator builds inputs.
const Words& vocabulary();

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace vorlatch::fuzz
