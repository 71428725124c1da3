#include "tests/random/play.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>
#include <numeric>
#include <optional>

#include "base/descriptor.h"
#include "tests/random/stage.h"
#include "tests/random/steps.h"

namespace vorlatch::tests::random {
namespace {

// A story that takes longer than this counts as endless.
constexpr unsigned kLongestStorySeconds = 120;

Outcome playHere(std::uint64_t seed, const Kept& kept) {
  const Plan plan = planOf(seed);
  Stage stage;
  // Every fourth seed keeps the order of the ready work.
  if (seed % 4 != 0) stage.device.scheduler.shuffleWith(seed);
  Outcome outcome;
  std::string at = "the start";
  try {
    bool started = false;
    const auto start_before = [&](std::size_t index) {
      if (started || index < plan.before_start) return;
      started = true;
      stage.start();
    };
    for (const std::size_t index : kept) {
      if (index >= plan.steps.size()) continue;
      start_before(index);
      at = plan.steps[index].text;
      plan.steps[index].act(stage);
      ++outcome.counts.steps;
    }
    start_before(plan.before_start);
    at = "the calm phase";
    stage.calmDown();
  } catch (const std::exception& failure) {
    outcome.failure =
        "at step " + std::to_string(outcome.counts.steps + 1) + ", " + at + "\n" + failure.what();
  }
  outcome.counts.work_items = stage.workItems();
  outcome.counts.lines = stage.linesLogged();
  return outcome;
}

void send(const Descriptor& to, const Outcome& outcome) {
  std::array<char, sizeof(Counts)> bytes{};
  std::memcpy(bytes.data(), &outcome.counts, bytes.size());
  writeWhole(to, {bytes.data(), bytes.size()});
  writeWhole(to, outcome.failure);
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

}  // namespace

Outcome play(std::uint64_t seed, const Kept& kept) {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) return {.counts = {}, .failure = "no pipe"};
  const Descriptor reading(ends[0]);
  std::optional<Descriptor> writing(ends[1]);
  std::fflush(stdout);  // or the child's daemon writes the buffer again when it reopens the stream
  const pid_t child = fork();
  if (child == 0) {
    alarm(kLongestStorySeconds);
    send(*writing, playHere(seed, kept));
    _exit(0);
  }
  writing.reset();
  const std::string told = readToTheEnd(reading);
  int status = 0;
  waitpid(child, &status, 0);
  Outcome outcome;
  if (told.size() < sizeof(Counts) || status != 0) {
    outcome.failure = "the process ended with status " + std::to_string(status);
    return outcome;
  }
  std::memcpy(&outcome.counts, told.data(), sizeof(Counts));
  outcome.failure = told.substr(sizeof(Counts));
  return outcome;
}

Kept allSteps(std::uint64_t seed) {
  Kept all(planOf(seed).steps.size());
  std::iota(all.begin(), all.end(), 0);
  return all;
}

// Leaves out ever smaller parts until every single remaining step is needed.
Kept shrink(std::uint64_t seed, Kept failing) {
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

}  // namespace vorlatch::tests::random
