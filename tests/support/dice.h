// Pseudo-random choices that are the same for a seed on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace vorlatch::tests {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : source_(seed) {}

  // A number in [0, end). Uses % because the library's distributions differ between
  // implementations.
  std::size_t below(std::size_t end) { return static_cast<std::size_t>(source_() % end); }
  // A number in [least, most].
  int between(int least, int most) {
    return least + static_cast<int>(below(static_cast<std::size_t>(most - least) + 1));
  }
  // percent(p): true with probability p / 100. oneIn(n): true with probability 1 / n.
  bool percent(std::size_t chance) { return below(100) < chance; }
  bool oneIn(std::size_t count) { return below(count) == 0; }
  // A random element of a list that is not empty.
  template <typename List>
  auto& of(List&& choices) {
    return choices[below(choices.size())];
  }

 private:
  std::mt19937_64 source_;
};

}  // namespace vorlatch::tests
