// The driver for the device, with main(): Darwin serves notifications only on the main thread, so
// the tests run on another thread. All cases can run in one process.
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <string_view>
#include <thread>

#include <gtest/gtest.h>

#include "platform/queues.h"
#include "tests/conformance/driver.h"

extern "C" char** environ;

namespace vorlatch::conformance {
namespace {

// Makes a copy of this program idle.
constexpr const char* kIdle = "--idle";

std::filesystem::path this_program;
bool main_loop_started = false;

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
  constexpr std::uint64_t kHourNs = 3'600'000'000'000;
  while (!runUntil([] { return main_loop_started; }, kHourNs)) {
  }
  platform::runMainLoop();
  return EXIT_FAILURE;
}

}  // namespace

std::uint64_t nowNs() {
  return clock_gettime_nsec_np(CLOCK_UPTIME_RAW);
}

void startMainLoop() {
  changed([] { main_loop_started = true; });
}

int startProcess(const std::string& executable_path) {
  std::filesystem::copy_file(this_program, executable_path);
  std::string path = executable_path;
  std::string argument = kIdle;
  char* const arguments[] = {path.data(), argument.data(), nullptr};
  pid_t pid = 0;
  return posix_spawn(&pid, path.c_str(), nullptr, nullptr, arguments, environ) == 0 ? pid : 0;
}

void endProcess(int pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
}

}  // namespace vorlatch::conformance

int main(int argc, char** argv) {
  return vorlatch::conformance::run(argc, argv);
}
