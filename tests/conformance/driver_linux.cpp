#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <thread>

#include "platform/queues.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

struct Changes {
  std::mutex mutex;
  std::condition_variable changed;
};

// Handlers may run until the process ends: what they use is never destroyed.
Changes& changes() {
  static Changes& one = *new Changes;
  return one;
}

class Pipe {
 public:
  Pipe() { valid_ = pipe2(ends_.data(), O_CLOEXEC) == 0; }
  Pipe(const Pipe&) = delete;
  Pipe& operator=(const Pipe&) = delete;
  ~Pipe() {
    for (const int end : ends_) {
      if (end >= 0) close(end);
    }
  }
  [[nodiscard]] bool isValid() const { return valid_; }
  [[nodiscard]] int readEnd() const { return ends_[0]; }
  [[nodiscard]] int writeEnd() const { return ends_[1]; }
  void closeWriteEnd() {
    close(ends_[1]);
    ends_[1] = -1;
  }

 private:
  std::array<int, 2> ends_{-1, -1};
  bool valid_ = false;
};

// The executables of a test, in a directory that goes with it, and what holds its idle processes:
// each ends when the pipe that it reads does, so that none outlives the test.
struct Processes {
  Processes() {
    std::string path = std::filesystem::temp_directory_path() / "conformance.XXXXXX";
    if (mkdtemp(path.data()) != nullptr) directory = path;
  }
  Processes(const Processes&) = delete;
  Processes& operator=(const Processes&) = delete;
  ~Processes() {
    std::error_code ignored;
    if (!directory.empty()) std::filesystem::remove_all(directory, ignored);
  }

  std::filesystem::path directory;
  int paths_given = 0;
  std::map<int, std::unique_ptr<Pipe>> running;
};

Processes& processes() {
  static Processes one;
  return one;
}

int spawn(const std::string& path, const Pipe& held, const Pipe& ready) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, held.readEnd(), STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, ready.writeEnd(), STDOUT_FILENO);
  std::string argument = path;
  std::array<char*, 2> arguments = {argument.data(), nullptr};
  pid_t pid = 0;
  const int error = posix_spawn(&pid, path.c_str(), &actions, nullptr, arguments.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return error == 0 ? pid : 0;
}

}  // namespace

std::uint64_t nowNs() {
  return static_cast<std::uint64_t>(nanoseconds(steady_clock::now().time_since_epoch()).count());
}

bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns) {
  std::unique_lock lock(changes().mutex);
  const auto end = steady_clock::now() + nanoseconds(at_most_ns);
  return changes().changed.wait_until(lock, end, done);
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
  const std::string number = std::to_string(++processes().paths_given);
  return processes().directory / number / name;
}

int startProcess(const std::string& executable_path) {
  std::error_code error;
  const std::filesystem::path path = executable_path;
  std::filesystem::create_directories(path.parent_path(), error);
  std::filesystem::copy_file(VORLATCH_IDLER, path, error);
  auto held = std::make_unique<Pipe>();
  Pipe ready;
  if (error || !held->isValid() || !ready.isValid()) return 0;
  const int pid = spawn(path, *held, ready);
  ready.closeWriteEnd();
  char byte = 0;
  // The end of the pipe without a byte: it did not get as far as its main function.
  if (pid == 0 || read(ready.readEnd(), &byte, 1) != 1) return 0;
  processes().running.emplace(pid, std::move(held));
  return pid;
}

void endProcess(int pid) {
  kill(pid, SIGKILL);
  waitpid(pid, nullptr, 0);
  processes().running.erase(pid);
}

}  // namespace vorlatch::conformance
