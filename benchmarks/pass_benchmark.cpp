// The time of an unchanged pass on the simulated device, without its two reads of the preferences.
#include <cstdio>
#include <string>

#include <benchmark/benchmark.h>

#include "benchmarks/paired_timing.h"
#include "config/preferences.h"
#include "reconcile/reconciliation_pass.h"
#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;

// Only one story per process, so each size replaces the previous targets and processes.
tests::Story& story() {
  static tests::Story& one = *new tests::Story;
  return one;
}

void arrange(std::int64_t targets, std::int64_t processes) {
  auto& device = story().device;
  device.is_tracing = false;
  while (device.processes().size() > 1) device.exit(device.processes().front().pid);
  Dictionary configs;
  for (std::int64_t i = 0; i < processes; ++i) {
    device.launch({.name = "process-" + std::to_string(i)});
  }
  for (std::int64_t i = 0; i < targets; ++i) {
    configs.insert_or_assign("process-" + std::to_string(i),
                             Dictionary{{"Remark", "target " + std::to_string(i)},
                                        {"JetsamPriority", -1},
                                        {"NiceValue", -5},
                                        {"MemLimitActive", 0},
                                        {"MemLimitInactive", 0},
                                        {"CheckInterval", 0}});
  }
  story().writeTargets(configs);
  kDebounceQueue.assertHeld();
  executeMemoryLimits();
}

void unchangedPass(benchmark::State& state) {
  arrange(state.range(0), state.range(1));
  const auto read_twice = [] {
    benchmark::DoNotOptimize(loadPreferences());
    benchmark::DoNotOptimize(loadPreferences());
  };
  benchmarks::timePair(state, "readings", read_twice, "pass", executeMemoryLimits);
}
BENCHMARK(unchangedPass)
    ->ArgNames({"targets", "processes"})
    ->Args({500, 1000})
    ->Args({250, 1000})
    ->Args({125, 1000})
    ->Args({500, 2000})
    ->Args({500, 4000})
    ->Iterations(60)
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vorlatch

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  // Hides the log of each arrangement, which would clutter the table.
  static_cast<void>(std::freopen("/dev/null", "w", stderr));
  benchmark::RunSpecifiedBenchmarks();
  vorlatch::story().~Story();
  return 0;
}
