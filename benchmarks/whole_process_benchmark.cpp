// The installed daemon with this program as its only target: time to start, time to answer a
// notification, and cost while idle. The argument is the idle time in seconds (default 60).
#include <poll.h>
#include <sched.h>
#include <sys/inotify.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <vector>

#include "base/files.h"
#include "benchmarks/installation.h"
#include "benchmarks/running_program.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "platform/notifications.h"

namespace vorlatch {
namespace {

using Clock = std::chrono::steady_clock;
using benchmarks::Installation;
using benchmarks::RunningProgram;
using std::chrono::milliseconds;

constexpr int kRuns = 50;

double millisecondsSince(Clock::time_point begin) {
  return std::chrono::duration<double, std::milli>(Clock::now() - begin).count();
}

void report(const char* what, std::vector<double> values_ms) {
  if (values_ms.empty()) {
    std::printf("%-44s nothing was measured\n", what);
    return;
  }
  std::sort(values_ms.begin(), values_ms.end());
  std::printf("%-44s median %8.3f ms   95th percentile %8.3f ms   (%zu runs)\n", what,
              values_ms[values_ms.size() / 2], values_ms[values_ms.size() * 95 / 100],
              values_ms.size());
}

void writeTarget(int remark) {
  writePropertyList(
      Installation::preferences(kPreferencesFileName),
      plist::Dictionary{
          {"Enabled", true},
          {"AppConfigs",
           plist::Dictionary{{"whole_process_benchmark",
                              plist::Dictionary{{"Remark", remark}, {"JetsamPriority", -1}}}}}});
}

// Waits until start-up is complete, which ends with the main thread waiting for notifications.
// Reads the name of the kernel function that it sleeps in, because a query for its system call is
// delayed by up to a tick while the thread leaves the processor.
void waitUntilServing(const RunningProgram& daemon) {
  while (readFile(daemon.proc("wchan"), 4096).value_or("") != "wait_woken") {
  }
}

// Watches the log for new lines.
class Log {
 public:
  Log() : descriptor_(inotify_init1(IN_CLOEXEC)) {
    inotify_add_watch(descriptor_, Installation::preferences("Vorlatch.log").c_str(), IN_MODIFY);
  }
  Log(const Log&) = delete;
  Log& operator=(const Log&) = delete;
  ~Log() { close(descriptor_); }
  // Waits for a line; returns false if none came in time.
  [[nodiscard]] bool waitForLine(milliseconds at_most) const {
    pollfd entry{.fd = descriptor_, .events = POLLIN, .revents = 0};
    if (poll(&entry, 1, static_cast<int>(at_most.count())) != 1) return false;
    std::array<char, 4096> events{};
    return read(descriptor_, events.data(), events.size()) > 0;
  }
  void waitUntilQuiet() const {
    while (waitForLine(milliseconds(300))) {
    }
  }

 private:
  int descriptor_;
};

// Restricts this thread, and processes that it starts later, to these processors.
void runOn(std::initializer_list<unsigned> processors) {
  cpu_set_t set;
  CPU_ZERO(&set);
  for (const unsigned processor : processors) CPU_SET(processor, &set);
  sched_setaffinity(0, sizeof(set), &set);
}

void measureStart(const Installation& installation) {
  std::vector<double> starts_ms;
  for (int run = 0; run < kRuns; ++run) {
    // This program polls without pause, so it must not share the daemon's processor.
    runOn({1});
    const auto begin = Clock::now();
    const RunningProgram daemon(installation, {});
    runOn({0});
    waitUntilServing(daemon);
    starts_ms.push_back(millisecondsSince(begin));
  }
  runOn({0, 1});
  report("start to run loop", starts_ms);
}

void measurePosts(const Log& log) {
  std::vector<double> answers_ms;
  for (int run = 0; run < kRuns; ++run) {
    log.waitUntilQuiet();
    writeTarget(run);
    const auto begin = Clock::now();
    platform::postNotification(kApplyNotificationName);
    if (log.waitForLine(milliseconds(2000))) answers_ms.push_back(millisecondsSince(begin));
  }
  report("post to the pass's first line", answers_ms);
}

void measureIdleness(const RunningProgram& daemon, const Log& log, int seconds) {
  log.waitUntilQuiet();
  const long switches_before = daemon.contextSwitches();
  const double cpu_before_ms = daemon.cpuMs();
  poll(nullptr, 0, seconds * 1000);
  std::printf("idle for %d s: %ld context switches, %.3f ms of CPU time\n", seconds,
              daemon.contextSwitches() - switches_before, daemon.cpuMs() - cpu_before_ms);
  std::printf("memory: PSS %ld kB, private dirty %ld kB, resident %ld kB\n",
              daemon.memoryKb("Pss:"), daemon.memoryKb("Private_Dirty:"), daemon.memoryKb("Rss:"));
}

void measureAll(int idle_seconds) {
  const Installation installation(VORLATCH_DAEMON, "/usr/libexec/vorlatchd");
  writeTarget(-1);
  measureStart(installation);
  {
    const RunningProgram daemon(installation, {});
    waitUntilServing(daemon);
    measurePosts(Log());
  }
  const RunningProgram daemon(installation, {});
  waitUntilServing(daemon);
  measureIdleness(daemon, Log(), idle_seconds);
}

}  // namespace
}  // namespace vorlatch

int main(int argc, char** argv) {
  constexpr int kIdleSeconds = 60;
  vorlatch::measureAll(argc > 1 ? std::atoi(argv[1]) : kIdleSeconds);
}
