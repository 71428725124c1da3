#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <thread>

#include "platform/queues.h"
#include "tests/blackbox/processes.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

std::map<int, std::unique_ptr<ChildProcess>>& running() {
  static std::map<int, std::unique_ptr<ChildProcess>> processes;
  return processes;
}

}  // namespace

std::uint64_t nowNs() {
  return static_cast<std::uint64_t>(
      std::chrono::nanoseconds(Clock::now().time_since_epoch()).count());
}

// The Linux main loop serves whatever thread calls it, and blocks there for the life of the
// process.
void startMainLoop() {
  std::thread(platform::runMainLoop).detach();
}

int startProcess(const std::string& executable_path) {
  std::filesystem::copy_file(VORLATCH_IDLER, executable_path);
  auto process = std::make_unique<ChildProcess>(executable_path);
  const int pid = process->pid();
  running().emplace(pid, std::move(process));
  return pid;
}

void endProcess(int pid) {
  running().erase(pid);
}

}  // namespace vorlatch::conformance
