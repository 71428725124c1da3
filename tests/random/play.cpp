#include "tests/random/play.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <numeric>
#include <optional>

#include <gtest/gtest.h>

#include "base/descriptor.h"
#include "tests/random/stage.h"
#include "tests/random/steps.h"

extern "C" __attribute__((weak)) int findLeaks() __asm__("__lsan_do_recoverable_leak_check");

namespace vorlatch::tests::random {
namespace {

using faults::FailingCall;
using faults::FaultInjector;

// A story that takes longer than this counts as endless.
constexpr unsigned kLongestStorySeconds = 120;

void playSteps(const Plan& plan, const Kept& kept, std::string& at) {
  Stage stage;
  // Every fourth seed runs work that is ready at once in order.
  if (plan.seed % 4 != 0) stage.device.scheduler.shuffleWith(plan.seed);
  bool started = false;
  const auto start_before = [&](std::size_t index) {
    if (started || index < plan.before_start) return;
    started = true;
    stage.start();
  };
  for (const std::size_t index : kept) {
    start_before(index);
    at = "step " + std::to_string(index) + ", " + plan.steps[index].text;
    plan.steps[index].act(stage);
  }
  start_before(plan.before_start);
  at = "the calm phase";
  stage.calmDown();
}

// Returns what went wrong, or an empty string.
std::string playHere(std::uint64_t seed, const Kept& kept) {
  const std::size_t files_before = openFiles();
  std::string at = "the start";
  try {
    playSteps(planOf(seed), kept, at);
  } catch (const std::exception& failure) {
    return FaultInjector::get().story() + "\nat " + at + "\n" + failure.what();
  }
  const std::string story = FaultInjector::get().story() + ": ";
  if (openFiles() > files_before) return story + "a file stayed open";
  if (findLeaks != nullptr && findLeaks() != 0) return story + "memory leaked";
  return testing::Test::HasFailure() ? story + "the story failed" : "";
}

std::string readToTheEnd(const Descriptor& from) {
  std::string bytes;
  std::array<char, 4096> part{};
  for (ssize_t got = 0; (got = read(from.get(), part.data(), part.size())) > 0;) {
    bytes.append(part.data(), static_cast<std::size_t>(got));
  }
  return bytes;
}

// The steps except those with indices [first, end) in the list.
Kept without(const Kept& kept, std::size_t first, std::size_t end) {
  Kept fewer(kept.begin(), kept.begin() + static_cast<std::ptrdiff_t>(first));
  fewer.insert(fewer.end(), kept.begin() + static_cast<std::ptrdiff_t>(end), kept.end());
  return fewer;
}

// Leaves out ever smaller parts until every single remaining step is needed.
Kept shrink(std::uint64_t seed) {
  Kept failing = allSteps(seed);
  std::size_t part = std::max<std::size_t>(1, failing.size() / 2);
  while (true) {
    bool spared = false;
    for (std::size_t first = 0; first < failing.size();) {
      const Kept fewer = without(failing, first, std::min(first + part, failing.size()));
      if (play(seed, fewer).failure.empty()) {
        first += part;
      } else {
        failing = fewer;
        spared = true;
      }
    }
    if (part == 1 && !spared) return failing;
    if (part > 1) part /= 2;
  }
}

}  // namespace

Outcome play(std::uint64_t seed, const Kept& kept,
             const std::optional<std::vector<faults::Fault>>& faults) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return {.failure = "no pipe", .calls = {}};
  const Descriptor reading(ends[0]);
  std::optional<Descriptor> writing(ends[1]);
  std::fflush(stdout);  // or the child's daemon writes the buffer again when it reopens the stream
  const pid_t child = ::fork();
  if (child == 0) {
    alarm(kLongestStorySeconds);
    if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);  // no story needs a disk
    // What the daemon writes to a stream that it could not point at its log.
    const Descriptor nowhere(open("/dev/null", O_RDWR | O_CLOEXEC));
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(nowhere.get(), stream);
    if (faults) FaultInjector::get().begin(*faults);
    const std::string failure = playHere(seed, kept);
    const auto& calls = FaultInjector::get().calls();
    std::string bytes(faults && faults->empty() ? calls.size() * sizeof(FailingCall) : 0, '\0');
    if (!bytes.empty()) std::memcpy(bytes.data(), calls.data(), bytes.size());
    writeWhole(*writing, failure.empty() ? bytes : failure);
    _exit(failure.empty() ? 0 : 1);
  }
  writing.reset();
  const std::string told = readToTheEnd(reading);
  int status = 0;
  waitpid(child, &status, 0);
  Outcome outcome;
  if (status != 0) {
    outcome.failure = WIFEXITED(status) && !told.empty()
                          ? told
                          : "the process ended with status " + std::to_string(status);
  } else {
    outcome.calls.resize(told.size() / sizeof(FailingCall));
    if (!told.empty()) std::memcpy(outcome.calls.data(), told.data(), told.size());
  }
  return outcome;
}

Kept allSteps(std::uint64_t seed) {
  Kept all(planOf(seed).steps.size());
  std::iota(all.begin(), all.end(), 0);
  return all;
}

std::string shrunk(std::uint64_t seed) {
  const Plan plan = planOf(seed);
  const Kept kept = shrink(seed);
  std::string text;
  bool started = false;
  for (const std::size_t index : kept) {
    if (!started && index >= plan.before_start) text += "the daemon starts\n";
    started = index >= plan.before_start;
    text += std::to_string(index) + "  " + plan.steps[index].text + '\n';
  }
  return text + play(seed, kept).failure;
}

}  // namespace vorlatch::tests::random
