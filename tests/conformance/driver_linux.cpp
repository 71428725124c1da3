#include <poll.h>

#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/queues.h"
#include "tests/blackbox/processes.h"
#include "tests/conformance/driver.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch::conformance {
namespace {

using std::chrono::nanoseconds;

struct Changes {
  std::mutex mutex;
  std::condition_variable changed;
};

// Handlers may run until the process ends: what they use is never destroyed.
Changes& changes() {
  static Changes& one = *new Changes;
  return one;
}

// The executables of a test and what runs of them, both gone when the test is.
struct Processes {
  tests::TemporaryDirectory directory;
  int paths_given = 0;
  std::map<int, std::unique_ptr<ChildProcess>> running;
};

Processes& processes() {
  static Processes one;
  return one;
}

}  // namespace

std::uint64_t nowNs() {
  return static_cast<std::uint64_t>(nanoseconds(Clock::now().time_since_epoch()).count());
}

bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns) {
  std::unique_lock lock(changes().mutex);
  return changes().changed.wait_until(lock, Clock::now() + nanoseconds(at_most_ns), done);
}

void changed(const std::function<void()>& change) {
  const std::lock_guard lock(changes().mutex);
  change();
  changes().changed.notify_all();
}

void spendInside(std::uint64_t duration_ns) {
  constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
  const timespec duration{static_cast<time_t>(duration_ns / kNanosecondsPerSecond),
                          static_cast<std::int64_t>(duration_ns % kNanosecondsPerSecond)};
  ppoll(nullptr, 0, &duration, nullptr);
}

// The Linux main loop serves whatever thread calls it, and blocks there for the life of the
// process.
void startMainLoop() {
  std::thread(platform::runMainLoop).detach();
}

std::string executablePath(const std::string& name) {
  return processes().directory / (std::to_string(++processes().paths_given) + "/" + name);
}

int startProcess(const std::string& executable_path) {
  std::filesystem::create_directories(std::filesystem::path(executable_path).parent_path());
  std::filesystem::copy_file(VORLATCH_IDLER, executable_path);
  auto process = std::make_unique<ChildProcess>(executable_path);
  const int pid = process->pid();
  processes().running.emplace(pid, std::move(process));
  return pid;
}

void endProcess(int pid) {
  processes().running.erase(pid);
}

}  // namespace vorlatch::conformance
