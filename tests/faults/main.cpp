// Tests every single fault, and pairs of faults. Each run is a process of its own: it plays a story
// on the simulated device while one or two planned calls fail, and compares the daemon with its
// rules.
//
//   fault_test single STORY SHARD SHARDS   every outcome of every call in the shard
//   fault_test alike STORY SHARD SHARDS    the same, but only the first of outcomes that are alike
//   fault_test double STORY SEED RUNS      random pairs of faults
//   fault_test repeat STORY FAULTS         FAULTS is CALL:OUTCOME, or two of them with a comma
//
// STORY is first_start or day. A failure prints the line that repeats it.
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/faults/device_story.h"
#include "tests/faults/fault_injector.h"
#include "tests/faults/transcript.h"
#include "tests/support/story.h"

extern "C" {
__attribute__((weak)) void __sanitizer_set_report_fd(void* descriptor);
__attribute__((weak)) int findLeaks() __asm__("__lsan_do_recoverable_leak_check");
}

namespace vorlatch::faults {
namespace {

constexpr unsigned kLongestRunS = 20;

using Play = Told (*)(const Standing*);
using Faults = std::vector<Fault>;

struct Run {
  bool passed = false;
  std::string text;
};

// The results of a run without faults.
struct Undisturbed {
  Standing standing;
  // For each call before the calm phase, one letter per outcome: n for a new one, a for one that is
  // like an earlier one.
  std::vector<std::string> outcomes;
};

std::string planText(const Faults& faults) {
  std::string text;
  for (const Fault& fault : faults) {
    text += (text.empty() ? "" : ",") + std::to_string(fault.call) + ':' +
            std::to_string(fault.outcome);
  }
  return text;
}

std::string lettersFor(const Call& call) {
  const std::vector<Outcome> outcomes = outcomesOf(call);
  std::string letters;
  for (auto outcome = outcomes.begin(); outcome != outcomes.end(); ++outcome) {
    const bool is_alike = std::any_of(outcomes.begin(), outcome, [&](const Outcome& earlier) {
      return areAlike(call, earlier, *outcome);
    });
    letters += is_alike ? 'a' : 'n';
  }
  return letters;
}

// Runs the story in this process. Returns what is wrong, or an empty string.
std::string playIn(Play play, const Faults& faults, const Standing* expected, Told& told) {
  const std::size_t files_before = tests::openFiles();
  FaultInjector::get().plan(faults);
  try {
    told = play(expected);
  } catch (const tests::Mismatch& mismatch) {
    return mismatch.what();
  }
  if (tests::openFiles() > files_before) return "a file stayed open";
  if (findLeaks != nullptr && findLeaks() != 0) return "memory leaked";
  if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) return "the story failed";
  return "";
}

[[noreturn]] void runChild(Play play, const Faults& faults, const Standing* expected, int answer) {
  alarm(kLongestRunS);
  // Keeps standard error for the sanitizers, because the daemon redirects the standard streams.
  const int report = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 100);
  if (__sanitizer_set_report_fd != nullptr) {
    __sanitizer_set_report_fd(reinterpret_cast<void*>(static_cast<long>(report)));
  }
  static_cast<void>(std::freopen("/dev/null", "w", stdout));
  static_cast<void>(std::freopen("/dev/null", "w", stderr));
  Told told;
  const std::string wrong = playIn(play, faults, expected, told);
  std::string text = wrong;
  if (wrong.empty() && faults.empty()) {
    for (const auto& [key, standing] : told.standing) text.append(key + '\t' + standing + '\n');
    for (std::size_t i = 0; i < told.calls_before_calm; ++i) {
      text += lettersFor(FaultInjector::get().calls()[i]) + '\n';
    }
  } else if (!wrong.empty()) {
    text = FaultInjector::get().story() + ": " + wrong;
  }
  dprintf(answer, "%s", text.c_str());
  _exit(wrong.empty() ? 0 : 1);
}

Run run(Play play, const Faults& faults, const Standing* expected) {
  int pipe_ends[2];
  if (pipe2(pipe_ends, O_CLOEXEC) != 0) return {.text = "no pipe"};
  const pid_t child = fork();
  if (child == 0) {
    close(pipe_ends[0]);
    runChild(play, faults, expected, pipe_ends[1]);
  }
  close(pipe_ends[1]);
  Run result;
  char bytes[4096];
  for (ssize_t got = 0; (got = read(pipe_ends[0], bytes, sizeof(bytes))) > 0;) {
    result.text.append(bytes, static_cast<std::size_t>(got));
  }
  close(pipe_ends[0]);
  int status = 0;
  waitpid(child, &status, 0);
  result.passed = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  if (WIFSIGNALED(status)) {
    result.text = "the daemon stopped by signal " + std::to_string(WTERMSIG(status));
  } else if (result.text.empty()) {
    result.text = "the daemon stopped with status " + std::to_string(WEXITSTATUS(status));
  }
  return result;
}

Undisturbed runUndisturbed(Play play) {
  const Run result = run(play, {}, nullptr);
  if (!result.passed) {
    std::printf("without any fault: %s\n", result.text.c_str());
    std::exit(1);
  }
  Undisturbed undisturbed;
  std::size_t at = 0;
  while (at < result.text.size()) {
    const std::size_t end = result.text.find('\n', at);
    const std::string line = result.text.substr(at, end - at);
    at = end + 1;
    if (const std::size_t tab = line.find('\t'); tab != line.npos) {
      undisturbed.standing[line.substr(0, tab)] = line.substr(tab + 1);
    } else {
      undisturbed.outcomes.push_back(line);
    }
  }
  return undisturbed;
}

class Campaign {
 public:
  explicit Campaign(std::string story)
      : story_(std::move(story)),
        play_(story_ == "day" ? playDay : playFirstStart),
        undisturbed_(runUndisturbed(play_)) {}

  void single(std::size_t shard, std::size_t shards, bool with_alike) {
    for (std::size_t call = shard; call < undisturbed_.outcomes.size(); call += shards) {
      const std::string& outcomes = undisturbed_.outcomes[call];
      for (std::size_t outcome = 0; outcome < outcomes.size(); ++outcome) {
        if (with_alike || outcomes[outcome] == 'n') hold({{.call = call, .outcome = outcome}});
      }
    }
  }
  // Half of the second faults come soon after the first, while the daemon handles it.
  void twice(std::uint64_t seed, int runs) {
    std::mt19937_64 random(seed);
    const auto below = [&random](std::size_t end) {
      return static_cast<std::size_t>(random() % end);
    };
    constexpr std::size_t kClose = 12;
    const std::size_t calls = undisturbed_.outcomes.size();
    for (int i = 0; i < runs; ++i) {
      const std::size_t first = below(calls - kClose);
      const std::size_t second = first + 1 + below(below(2) == 0 ? kClose : calls - first - 1);
      hold({{.call = first, .outcome = below(64)}, {.call = second, .outcome = below(64)}});
    }
  }
  void hold(const Faults& faults) {
    const Run result = run(play_, faults, &undisturbed_.standing);
    ++runs_;
    if (result.passed) return;
    ++failures_;
    std::printf("fault_test repeat %s %s   # %s\n", story_.c_str(), planText(faults).c_str(),
                result.text.c_str());
  }
  int report() const {
    std::printf("%s: %zu calls can fail before the calm, %d runs, %d failed\n", story_.c_str(),
                undisturbed_.outcomes.size(), runs_, failures_);
    return failures_ == 0 && runs_ > 0 ? 0 : 1;
  }

 private:
  std::string story_;
  Play play_;
  Undisturbed undisturbed_;
  int runs_ = 0;
  int failures_ = 0;
};

Faults parsePlan(const char* text) {
  Faults faults;
  while (*text != '\0') {
    char* end = nullptr;
    const std::size_t call = std::strtoul(text, &end, 10);
    const std::size_t outcome = *end == ':' ? std::strtoul(end + 1, &end, 10) : 0;
    faults.push_back({.call = call, .outcome = outcome});
    text = *end == ',' ? end + 1 : end;
  }
  return faults;
}

}  // namespace
}  // namespace vorlatch::faults

int main(int argc, char** argv) {
  testing::InitGoogleTest(&argc, argv);
  const std::vector<std::string> arguments(argv + 1, argv + argc);
  if (arguments.size() < 3) return 2;
  // Thousands of runs need not wait for a disk.
  if (access("/dev/shm", W_OK) == 0) setenv("TMPDIR", "/dev/shm", 0);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const std::string& mode = arguments[0];
  vorlatch::faults::Campaign campaign(arguments[1]);
  if (mode == "repeat") {
    campaign.hold(vorlatch::faults::parsePlan(argv[3]));
  } else if (arguments.size() != 4) {
    return 2;
  } else if (mode == "double") {
    campaign.twice(std::stoul(arguments[2]), std::stoi(arguments[3]));
  } else {
    campaign.single(std::stoul(arguments[2]), std::stoul(arguments[3]), mode == "single");
  }
  return campaign.report();
}
