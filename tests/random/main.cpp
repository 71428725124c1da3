// Usage: random_stories [--stories N] [--from SEED]
//        random_stories --seed SEED [--steps LIST]
//
// Plays the stories of N seeds (default 2000), beginning with SEED (default 1). At the first
// failure the program reduces the story to the steps that are needed, prints them with the command
// that repeats them, and exits with 1. With --seed it prints and plays one story; --steps plays
// only the steps with these indices, as in 0-3,7.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "tests/random/play.h"
#include "tests/random/steps.h"
#include "tests/support/error_stream.h"

namespace vorlatch::tests::random {
namespace {

std::string number(std::uint64_t value) {
  return std::to_string(value);
}

// Creates the stories' roots in memory, because they are small and short-lived.
class Workplace {
 public:
  Workplace() {
    const char* memory = "/dev/shm";
    std::error_code ignored;
    const std::filesystem::path parent = std::filesystem::is_directory(memory, ignored)
                                             ? std::filesystem::path(memory)
                                             : std::filesystem::temp_directory_path();
    path_ = (parent / "stories.XXXXXX").string();
    if (mkdtemp(path_.data()) != nullptr) setenv("TMPDIR", path_.c_str(), 1);
  }
  Workplace(const Workplace&) = delete;
  Workplace& operator=(const Workplace&) = delete;
  ~Workplace() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }

 private:
  std::string path_;
};

std::string textOf(const Kept& kept) {
  std::string text;
  for (std::size_t i = 0; i < kept.size();) {
    std::size_t last = i;
    while (last + 1 < kept.size() && kept[last + 1] == kept[last] + 1) ++last;
    text += (text.empty() ? "" : ",") + std::to_string(kept[i]);
    if (last > i) text += "-" + std::to_string(kept[last]);
    i = last + 1;
  }
  return text.empty() ? "none" : text;
}

Kept keptIn(const std::string& text) {
  Kept kept;
  if (text == "none") return kept;
  const char* at = text.c_str();
  while (*at != '\0') {
    char* end = nullptr;
    const char* const begin = at;
    const std::size_t first = std::strtoull(begin, &end, 10);
    if (end == begin) break;  // not a number
    std::size_t last = first;
    if (*end == '-') last = std::strtoull(end + 1, &end, 10);
    for (std::size_t index = first; index <= last; ++index) kept.push_back(index);
    at = *end == ',' ? end + 1 : end;
  }
  return kept;
}

void printStory(std::uint64_t seed, const Kept& kept) {
  const Plan plan = planOf(seed);
  bool started = false;
  const auto start_before = [&](std::size_t index) {
    if (!started && index >= plan.before_start) std::printf("       the daemon starts\n");
    started = started || index >= plan.before_start;
  };
  for (const std::size_t index : kept) {
    if (index >= plan.steps.size()) continue;
    start_before(index);
    std::printf("%5zu  %s\n", index, plan.steps[index].text.c_str());
  }
  start_before(plan.before_start);
}

int playOne(const std::string& program, std::uint64_t seed, const Kept& kept) {
  printStory(seed, kept);
  const Outcome outcome = play(seed, kept);
  if (outcome.failure.empty()) {
    std::printf("       and all is as the rules say: %s pieces of work, %s lines of the log\n",
                number(outcome.counts.work_items).c_str(), number(outcome.counts.lines).c_str());
    return 0;
  }
  std::printf("%s\nAgain: %s --seed %s --steps %s\n", outcome.failure.c_str(), program.c_str(),
              number(seed).c_str(), textOf(kept).c_str());
  return 1;
}

int playMany(const std::string& program, std::uint64_t first, std::uint64_t stories) {
  const auto begin = std::chrono::steady_clock::now();
  Counts counts;
  for (std::uint64_t seed = first; seed < first + stories; ++seed) {
    const Kept all = allSteps(seed);
    const Outcome outcome = play(seed, all);
    if (!outcome.failure.empty()) {
      std::printf("Seed %s fails, story %s of this run: %s\nShrunk:\n", number(seed).c_str(),
                  number(seed - first + 1).c_str(), outcome.failure.c_str());
      return playOne(program, seed, shrink(seed, all));
    }
    counts.steps += outcome.counts.steps;
    counts.work_items += outcome.counts.work_items;
    counts.lines += outcome.counts.lines;
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
  const std::string told = number(stories) + " stories from seed " + number(first) +
                           " on: " + number(counts.steps) + " steps, " + number(counts.work_items) +
                           " pieces of work, " + number(counts.lines) + " lines of the log";
  std::printf("%s, in %.1f s\n", told.c_str(), took.count());
  return 0;
}

int run(int argc, char** argv) {
  keepErrorStream();
  std::uint64_t stories = 2000;
  std::uint64_t from = 1;
  std::optional<std::uint64_t> seed;
  std::optional<Kept> kept;
  for (int i = 1; i < argc; i += 2) {
    const std::string_view name = argv[i];
    if (i + 1 == argc) {
      std::fprintf(stderr, "%s: %s takes a value\n", argv[0], argv[i]);
      return 2;
    }
    const std::uint64_t number = std::strtoull(argv[i + 1], nullptr, 10);
    if (name == "--stories") {
      stories = number;
    } else if (name == "--from") {
      from = number;
    } else if (name == "--seed") {
      seed = number;
    } else if (name == "--steps") {
      kept = keptIn(argv[i + 1]);
    } else {
      std::fprintf(stderr, "%s: unknown argument: %s\n", argv[0], argv[i]);
      return 2;
    }
  }
  const Workplace workplace;
  return seed ? playOne(argv[0], *seed, kept.value_or(allSteps(*seed)))
              : playMany(argv[0], from, stories);
}

}  // namespace
}  // namespace vorlatch::tests::random

int main(int argc, char** argv) {
  return vorlatch::tests::random::run(argc, argv);
}
