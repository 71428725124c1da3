// The driver for machines with real time, with main(): Darwin serves notifications only on the main
// thread, so the tests run on another thread.
#include <poll.h>
#include <spawn.h>
#include <sys/select.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <thread>

#include "platform/queues.h"
#include "tests/conformance/driver.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch::conformance {
namespace {

// Makes a copy of this program idle.
constexpr const char* kIdle = "--idle";
constexpr std::uint64_t kNsPerSecond = 1'000'000'000;

std::filesystem::path this_program;
bool main_loop_started = false;

struct Changes {
  std::mutex mutex;
  std::condition_variable changed;
};

// Never destroyed, because handlers may run until the process ends.
Changes& changes() {
  static Changes& one = *new Changes;
  return one;
}

// Ends soon after the test does, even if the test crashes.
[[noreturn]] void idle() {
  constexpr int kPauseMs = 500;
  const pid_t parent = getppid();
  while (getppid() == parent) poll(nullptr, 0, kPauseMs);
  std::_Exit(0);
}

int run(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == kIdle) idle();
  this_program = std::filesystem::absolute(argv[0]);
  testing::InitGoogleTest(&argc, argv);
  std::thread([] { std::exit(RUN_ALL_TESTS()); }).detach();
  while (!runUntil([] { return main_loop_started; }, 3600 * kNsPerSecond)) {
  }
  platform::runMainLoop();
  return EXIT_FAILURE;
}

}  // namespace

std::uint64_t nowNs() {
#ifdef __APPLE__
  constexpr clockid_t kUptime = CLOCK_UPTIME_RAW;
#else
  constexpr clockid_t kUptime = CLOCK_MONOTONIC;
#endif
  timespec now{};
  clock_gettime(kUptime, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * kNsPerSecond +
         static_cast<std::uint64_t>(now.tv_nsec);
}

bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns) {
  std::unique_lock lock(changes().mutex);
  const auto end = std::chrono::steady_clock::now() + std::chrono::nanoseconds(at_most_ns);
  return changes().changed.wait_until(lock, end, done);
}

void changed(const std::function<void()>& change) {
  const std::lock_guard lock(changes().mutex);
  change();
  changes().changed.notify_all();
}

void spendInside(std::uint64_t duration_ns) {
  const timespec duration{.tv_sec = static_cast<time_t>(duration_ns / kNsPerSecond),
                          .tv_nsec = static_cast<long>(duration_ns % kNsPerSecond)};
  pselect(0, nullptr, nullptr, nullptr, &duration, nullptr);
}

void startMainLoop() {
  changed([] { main_loop_started = true; });
}

std::string executablePath(const std::string& name) {
  static const tests::TemporaryDirectory directory;
  static int paths_given = 0;
  const std::filesystem::path path = directory / std::to_string(++paths_given);
  std::filesystem::create_directory(path);
  return path / name;
}

int startProcess(const std::string& executable_path) {
  using Options = std::filesystem::copy_options;
  std::filesystem::copy_file(this_program, executable_path, Options::skip_existing);
  std::string path = executable_path;
  std::string argument = kIdle;
  char* const arguments[] = {path.data(), argument.data(), nullptr};
  pid_t pid = 0;
  char* no_environment[] = {nullptr};
  return posix_spawn(&pid, path.c_str(), nullptr, nullptr, arguments, no_environment) == 0 ? pid
                                                                                           : 0;
}

void endProcess(int pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace vorlatch::conformance

int main(int argc, char** argv) {
  return vorlatch::conformance::run(argc, argv);
}
