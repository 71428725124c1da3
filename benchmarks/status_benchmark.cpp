// The extra time of `vorlatchctl status` over `match`. Both read the same files and scan the same
// processes, but only `status` queries single processes.
#include <sys/wait.h>

#include <benchmark/benchmark.h>

#include "benchmarks/crowd.h"
#include "benchmarks/held_crowd.h"
#include "benchmarks/installation.h"
#include "benchmarks/paired_timing.h"

namespace vorlatch {
namespace {

using benchmarks::Installation;

void status(benchmark::State& state) {
  const benchmarks::Crowd crowd(state.range(0), benchmarks::kTargetPrefix);
  const Installation installation(VORLATCH_CONTROL, "/usr/bin/vorlatchctl");
  benchmarks::writeFilesOf(crowd, crowd.pids().size());
  const auto run = [&](const char* command, const char* argument) {
    waitpid(installation.start({command, argument}), nullptr, 0);
  };
  benchmarks::timePair(
      state, "match", [&] { run("match", "nobody"); }, "status", [&] { run("status", "--json"); });
}
BENCHMARK(status)->Arg(10)->Arg(500)->Iterations(40)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vorlatch

BENCHMARK_MAIN();
