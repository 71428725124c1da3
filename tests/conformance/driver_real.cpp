// What the drivers of all machines with real time share.
#include <sys/select.h>

#include <chrono>
#include <condition_variable>
#include <mutex>

#include "tests/conformance/driver.h"
#include "tests/support/temporary_directory.h"

namespace vorlatch::conformance {
namespace {

using std::chrono::steady_clock;

struct Changes {
  std::mutex mutex;
  std::condition_variable changed;
};

// Never destroyed, because handlers may run until the process ends.
Changes& changes() {
  static Changes& one = *new Changes;
  return one;
}

}  // namespace

bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns) {
  std::unique_lock lock(changes().mutex);
  const auto end = steady_clock::now() + std::chrono::nanoseconds(at_most_ns);
  return changes().changed.wait_until(lock, end, done);
}

void changed(const std::function<void()>& change) {
  const std::lock_guard lock(changes().mutex);
  change();
  changes().changed.notify_all();
}

void spendInside(std::uint64_t duration_ns) {
  constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
  const timespec duration{.tv_sec = static_cast<time_t>(duration_ns / kNanosecondsPerSecond),
                          .tv_nsec = static_cast<long>(duration_ns % kNanosecondsPerSecond)};
  pselect(0, nullptr, nullptr, nullptr, &duration, nullptr);
}

std::string executablePath(const std::string& name) {
  static const tests::TemporaryDirectory directory;
  static int paths_given = 0;
  const std::filesystem::path path = directory / std::to_string(++paths_given);
  std::filesystem::create_directory(path);
  return path / name;
}

}  // namespace vorlatch::conformance
