// The installed daemon with this program as its only target: time to start, time to answer a
// notification, and cost while idle. The argument is the idle time in seconds (default 60).
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <spawn.h>
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
#include <system_error>
#include <vector>

#include "base/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "platform/linux/installation.h"
#include "platform/notifications.h"

namespace vorlatch {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;
namespace fs = std::filesystem;

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

// Installs the daemon beside this program: notifications reach only daemons in the same root, and a
// program's root depends on where it is installed.
class Root {
 public:
  Root() {
    const fs::path root = platform::installationRoot();
    for (const char* made : {"usr", "var"}) fs::remove_all(root / made);
    fs::create_directories(root / "usr/libexec");
    fs::create_directories(root / "usr/lib");
    fs::create_directories(root / "var/mobile/Library/Preferences");
    fs::copy_file(VORLATCH_DAEMON, root / "usr/libexec/vorlatchd");
    fs::copy_file(VORLATCH_LIBROOT, root / "usr/lib/libroot.so");
    // Pages not yet on disk would count as the program's private dirty memory.
    sync();
  }
  Root(const Root&) = delete;
  Root& operator=(const Root&) = delete;
  ~Root() {
    std::error_code ignored;
    for (const char* made : {"/usr", "/var"}) fs::remove_all(path(made), ignored);
  }
  static std::string path(const std::string& below) { return platform::installationRoot() + below; }
  static std::string file(const std::string& name) {
    return path("/var/mobile/Library/Preferences/" + name);
  }
};

void writeTarget(int remark) {
  writePropertyList(
      Root::file(kPreferencesFileName),
      plist::Dictionary{
          {"Enabled", true},
          {"AppConfigs",
           plist::Dictionary{{"whole_process_benchmark",
                              plist::Dictionary{{"Remark", remark}, {"JetsamPriority", -1}}}}}});
}

class Daemon {
 public:
  Daemon() {
    std::string program = Root::path("/usr/libexec/vorlatchd");
    std::array<char*, 2> arguments{program.data(), nullptr};
    posix_spawn(&pid_, program.c_str(), nullptr, nullptr, arguments.data(), environ);
  }
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  ~Daemon() {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  // Whether start-up is complete, which ends with the main thread waiting for notifications. Reads
  // the name of the kernel function that it sleeps in, because a query for its system call is
  // delayed by up to a tick while the thread leaves the processor.
  [[nodiscard]] bool isServing() const {
    return readFile(proc("wchan"), 4096).value_or("") == "wait_woken";
  }
  // The sum of a numeric status field over all threads.
  [[nodiscard]] long perThread(const std::string& field) const {
    long sum = 0;
    for (const auto& thread : fs::directory_iterator(proc("task"))) {
      sum += number(thread.path() / "status", field);
    }
    return sum;
  }
  [[nodiscard]] long memoryKb(const std::string& field) const {
    return number(proc("smaps_rollup"), field);
  }
  // CPU time of all threads, in milliseconds.
  [[nodiscard]] double cpuMs() const {
    double sum_ns = 0;
    for (const auto& thread : fs::directory_iterator(proc("task"))) {
      sum_ns +=
          std::atof(readFile((thread.path() / "schedstat").string(), 4096).value_or("").c_str());
    }
    return sum_ns / 1e6;
  }

 private:
  [[nodiscard]] std::string proc(const std::string& name) const {
    return "/proc/" + std::to_string(pid_) + "/" + name;
  }
  static long number(const std::string& file, const std::string& field) {
    const std::string text = readFile(file, 1 << 20).value_or("");
    const std::size_t at = text.find(field + ":");
    return at == text.npos ? -1 : std::atol(text.c_str() + at + field.size() + 1);
  }

  pid_t pid_ = 0;
};

// Watches the log for new lines.
class Log {
 public:
  Log() : descriptor_(inotify_init1(IN_CLOEXEC)) {
    inotify_add_watch(descriptor_, Root::file("Vorlatch.log").c_str(), IN_MODIFY);
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

void measureStart() {
  std::vector<double> starts_ms;
  for (int run = 0; run < kRuns; ++run) {
    // This program polls without pause, so it must not share the daemon's processor.
    runOn({1});
    const auto begin = Clock::now();
    const Daemon daemon;
    runOn({0});
    while (!daemon.isServing()) {
    }
    starts_ms.push_back(millisecondsSince(begin));
  }
  runOn({0, 1});
  report("start to run loop", starts_ms);
}

void measurePosts() {
  const Daemon daemon;
  while (!daemon.isServing()) {
  }
  const Log log;
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

void measureIdleness(int seconds) {
  const Daemon daemon;
  while (!daemon.isServing()) {
  }
  const Log log;
  log.waitUntilQuiet();
  const long switches_before =
      daemon.perThread("voluntary_ctxt_switches") + daemon.perThread("nonvoluntary_ctxt_switches");
  const double cpu_before_ms = daemon.cpuMs();
  poll(nullptr, 0, seconds * 1000);
  const long switches = daemon.perThread("voluntary_ctxt_switches") +
                        daemon.perThread("nonvoluntary_ctxt_switches") - switches_before;
  std::printf("idle for %d s: %ld context switches, %.3f ms of CPU time\n", seconds, switches,
              daemon.cpuMs() - cpu_before_ms);
  std::printf("memory: PSS %ld kB, private dirty %ld kB, resident %ld kB\n", daemon.memoryKb("Pss"),
              daemon.memoryKb("Private_Dirty"), daemon.memoryKb("Rss"));
}

}  // namespace
}  // namespace vorlatch

int main(int argc, char** argv) {
  constexpr int kIdleSeconds = 60;
  const vorlatch::Root root;
  vorlatch::writeTarget(-1);
  vorlatch::measureStart();
  vorlatch::measurePosts();
  vorlatch::measureIdleness(argc > 1 ? std::atoi(argv[1]) : kIdleSeconds);
  return 0;
}
