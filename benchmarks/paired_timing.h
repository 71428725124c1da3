// Times two functions alternately, so that disturbances of the machine affect both equally.
#pragma once

#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>

namespace vorlatch::benchmarks {

// Reports the medians, their difference and their ratio.
template <typename First, typename Second>
void timePair(benchmark::State& state, const std::string& first_name, First first,
              const std::string& second_name, Second second) {
  using Clock = std::chrono::steady_clock;
  std::vector<double> first_us;
  std::vector<double> second_us;
  const auto time = [](auto work, std::vector<double>& times_us) {
    const auto begin = Clock::now();
    work();
    times_us.push_back(std::chrono::duration<double, std::micro>(Clock::now() - begin).count());
  };
  while (state.KeepRunning()) {
    const bool is_first_next = first_us.size() % 2 == 0;
    if (is_first_next) time(first, first_us);
    time(second, second_us);
    if (!is_first_next) time(first, first_us);
  }
  const auto median = [](std::vector<double>& times_us) {
    std::sort(times_us.begin(), times_us.end());
    return times_us[times_us.size() / 2];
  };
  state.counters[first_name + "_us"] = median(first_us);
  state.counters[second_name + "_us"] = median(second_us);
  state.counters["beyond_us"] = median(second_us) - median(first_us);
  state.counters["ratio"] = median(second_us) / median(first_us);
}

}  // namespace vorlatch::benchmarks
