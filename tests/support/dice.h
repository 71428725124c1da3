// Chance that a seed repeats, on every machine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <random>

namespace vorlatch::tests {

class Dice {
 public:
  explicit Dice(std::uint64_t seed) : source_(seed) {}

  // A number from 0 to below `end`. The library's distributions differ from one to the next.
  std::size_t below(std::size_t end) { return static_cast<std::size_t>(source_() % end); }
  // Both ends can come.
  int between(int least, int most) {
    return least + static_cast<int>(below(static_cast<std::size_t>(most - least) + 1));
  }
  // True in so many cases of a hundred; in one case of so many.
  bool percent(std::size_t chance) { return below(100) < chance; }
  bool oneIn(std::size_t count) { return below(count) == 0; }
  // One of a list that is not empty.
  template <typename List>
  auto& of(List&& choices) {
    return choices[below(choices.size())];
  }

 private:
  std::mt19937_64 source_;
};

}  // namespace vorlatch::tests
