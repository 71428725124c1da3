// The extra time of `vorlatchctl status` over `match`. Both read the same files and scan the same
// processes, but only `status` queries single processes.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <filesystem>
#include <string>

#include <benchmark/benchmark.h>

#include "benchmarks/crowd.h"
#include "benchmarks/paired_timing.h"
#include "config/property_list_file.h"
#include "platform/linux/installation.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;

// A program's jailbreak root depends on where it is installed.
class Installation {
 public:
  explicit Installation(const benchmarks::Crowd& crowd) {
    fs::remove_all(root_);
    fs::create_directories(root_ / "usr/bin");
    fs::create_directories(root_ / "usr/lib");
    fs::create_directories(preferences_);
    fs::copy_file(VORLATCH_CONTROL, root_ / "usr/bin/vorlatchctl");
    fs::copy_file(VORLATCH_LIBROOT, root_ / "usr/lib/libroot.so");
    Dictionary targets;
    Dictionary status;
    int number = 0;
    for (const pid_t pid : crowd.pids()) {
      const std::string name = "target-" + std::to_string(number++);
      targets.insert_or_assign(name, Dictionary{{"JetsamPriority", -1}, {"NiceValue", 0}});
      status.insert_or_assign(name, Dictionary{{"pid", pid}, {"n", 0}, {"p", 180}});
    }
    writePropertyList(preferences_ / "com.zel.vorlatch.plist",
                      Dictionary{{"Enabled", true}, {"AppConfigs", targets}});
    writePropertyList(preferences_ / "com.zel.vorlatch.status.plist", status);
  }
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;
  ~Installation() {
    std::error_code ignored;
    fs::remove_all(root_, ignored);
  }

  void control(std::string command, std::string argument) const {
    std::string program = root_ / "usr/bin/vorlatchctl";
    std::array<char*, 4> arguments{program.data(), command.data(), argument.data(), nullptr};
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = 0;
    posix_spawn(&pid, program.c_str(), &actions, nullptr, arguments.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    waitpid(pid, nullptr, 0);
  }

 private:
  const fs::path root_ = fs::path(platform::installationRoot()) / "status_benchmark_root";
  const fs::path preferences_ = root_ / "var/mobile/Library/Preferences";
};

void status(benchmark::State& state) {
  const benchmarks::Crowd crowd(state.range(0), "target-");
  const Installation installation(crowd);
  benchmarks::PairedTiming timing;
  while (state.KeepRunning()) {
    timing.time([&] { installation.control("match", "nobody"); },
                [&] { installation.control("status", "--json"); });
  }
  state.counters["match_us"] = timing.firstUs();
  state.counters["status_us"] = timing.secondUs();
  state.counters["beyond_us"] = timing.secondUs() - timing.firstUs();
}
BENCHMARK(status)->Arg(10)->Arg(500)->Iterations(40)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace vorlatch

BENCHMARK_MAIN();
