// The chance in a story: the same for the same seed, on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace vorlatch::tests::random {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : source_(seed) {}
  // A number from 0 to below `end`.
  std::size_t below(std::size_t end) { return static_cast<std::size_t>(source_() % end); }
  bool percent(std::size_t chance) { return below(100) < chance; }
  template <typename T>
  const T& of(const std::vector<T>& choices) {
    return choices[below(choices.size())];
  }

 private:
  std::mt19937_64 source_;
};

}  // namespace vorlatch::tests::random
