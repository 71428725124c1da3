// The running-process map of this machine's processes, against its floor: the same calls of the
// platform with nothing around them.
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <csignal>
#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include "benchmarks/paired_timing.h"
#include "platform/process_table.h"
#include "proc/process_lookup.h"

namespace vorlatch {
namespace {

// As many idle processes beside those that run anyway.
class Crowd {
 public:
  explicit Crowd(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) {
      const pid_t pid = fork();
      if (pid == 0) {
        while (true) pause();
      }
      if (pid > 0) pids_.push_back(pid);
    }
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    for (const pid_t pid : pids_) kill(pid, SIGKILL);
    for (const pid_t pid : pids_) waitpid(pid, nullptr, 0);
  }

 private:
  std::vector<pid_t> pids_;
};

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
  const Crowd crowd(state.range(0));
  benchmarks::PairedTiming timing;
  while (state.KeepRunning()) {
    timing.time(floorOfTheMap, [] { benchmark::DoNotOptimize(getRunningProcessMap()); });
  }
  state.counters["floor_us"] = timing.firstUs();
  state.counters["map_us"] = timing.secondUs();
  state.counters["ratio"] = timing.secondUs() / timing.firstUs();
}
BENCHMARK(runningProcessMap)->Arg(500)->Arg(5000)->Iterations(60)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vorlatch

BENCHMARK_MAIN();
