// The time to build the running-process map of this machine, compared with the platform calls
// alone.
#include <array>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/crowd.h"
#include "benchmarks/paired_timing.h"
#include "platform/process_table.h"
#include "proc/process_lookup.h"

namespace vorlatch {
namespace {

void floorOfTheMap() {
  const int needed = platform::proc_listpids(platform::PROC_ALL_PIDS, 0, nullptr, 0);
  std::vector<std::int32_t> pids(static_cast<std::size_t>(needed));
  const int filled = platform::proc_listpids(platform::PROC_ALL_PIDS, 0, pids.data(), 4 * needed);
  std::array<char, 256> name;
  std::array<char, 4096> path;
  for (std::size_t i = 0; i < static_cast<std::size_t>(filled) / 4; ++i) {
    platform::proc_name(pids[i], name.data(), 256);
    platform::proc_pidpath(pids[i], path.data(), 4096);
  }
  benchmark::DoNotOptimize(path);
}

void runningProcessMap(benchmark::State& state) {
  const benchmarks::Crowd crowd(state.range(0));
  benchmarks::timePair(state, "floor", floorOfTheMap, "map",
                       [] { benchmark::DoNotOptimize(getRunningProcessMap()); });
}
BENCHMARK(runningProcessMap)->Arg(500)->Arg(5000)->Iterations(60)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vorlatch

BENCHMARK_MAIN();
