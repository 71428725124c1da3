// Times two functions alternately, so that disturbances of the machine affect both equally.
#pragma once

#include <algorithm>
#include <chrono>
#include <vector>

namespace vorlatch::benchmarks {

class PairedTiming {
 public:
  template <typename First, typename Second>
  void time(First first, Second second) {
    if (first_us_.size() % 2 == 0) {
      first_us_.push_back(microsecondsOf(first));
      second_us_.push_back(microsecondsOf(second));
    } else {
      second_us_.push_back(microsecondsOf(second));
      first_us_.push_back(microsecondsOf(first));
    }
  }
  [[nodiscard]] double firstUs() const { return median(first_us_); }
  [[nodiscard]] double secondUs() const { return median(second_us_); }

 private:
  template <typename Work>
  static double microsecondsOf(Work work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - begin)
        .count();
  }
  static double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
  }

  std::vector<double> first_us_;
  std::vector<double> second_us_;
};

}  // namespace vorlatch::benchmarks
