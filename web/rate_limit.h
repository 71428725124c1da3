// Bounds how often something may happen: on average, with a burst.
#pragma once

#include <algorithm>
#include <chrono>

namespace vorlatch::web {

class RateLimit {
 public:
  using Clock = std::chrono::steady_clock;

  RateLimit(double per_second, double burst)
      : per_second_(per_second), burst_(burst), left_(burst) {}

  // Counts one more, and returns false if that is too many.
  bool admit(Clock::time_point now) {
    const std::chrono::duration<double> passed = now - last_;
    if (last_ != Clock::time_point{})
      left_ = std::min(burst_, left_ + passed.count() * per_second_);
    last_ = now;
    if (left_ < 1) return false;
    left_ -= 1;
    return true;
  }

 private:
  double per_second_;
  double burst_;
  double left_;
  Clock::time_point last_{};
};

}  // namespace vorlatch::web
