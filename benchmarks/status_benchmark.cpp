// The extra time of `vorlatchctl status` over `match`. Both read the same files and scan the same
// processes, but only `status` queries single processes.
#include <sys/wait.h>

#include <string>

#include <benchmark/benchmark.h>

#include "benchmarks/crowd.h"
#include "benchmarks/installation.h"
#include "benchmarks/paired_timing.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"

namespace vorlatch {
namespace {

using benchmarks::Installation;
using plist::Dictionary;

void status(benchmark::State& state) {
  const benchmarks::Crowd crowd(state.range(0), "target-");
  const Installation installation(VORLATCH_CONTROL, "/usr/bin/vorlatchctl");
  Dictionary targets;
  Dictionary entries;
  for (const pid_t pid : crowd.pids()) {
    const std::string name = "target-" + std::to_string(targets.size());
    targets.insert_or_assign(name, Dictionary{{"JetsamPriority", -1}, {"NiceValue", 0}});
    entries.insert_or_assign(name, Dictionary{{"pid", pid}, {"n", 0}, {"p", 180}});
  }
  writePropertyList(Installation::preferences(kPreferencesFileName),
                    Dictionary{{"Enabled", true}, {"AppConfigs", targets}});
  writePropertyList(Installation::preferences(kStatusFileName), entries);
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
