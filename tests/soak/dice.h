// Chance that a seed repeats.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace vorlatch {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : engine_(seed) {}

  // Both ends can come.
  int between(int least, int most) {
    return std::uniform_int_distribution<int>(least, most)(engine_);
  }
  bool oneIn(int count) { return between(1, count) == 1; }
  // One of a list that is not empty.
  template <typename List>
  auto& oneOf(List& list) {
    return list[static_cast<std::size_t>(between(0, static_cast<int>(list.size()) - 1))];
  }

 private:
  std::mt19937_64 engine_;
};

}  // namespace vorlatch
