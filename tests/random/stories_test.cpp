// Random stories against the oracle, and a few of them while calls fail. A failure prints the seed,
// which --seed SEED --stories 1 plays again.
#include <array>
#include <set>

#include <gtest/gtest.h>

#include "tests/random/play.h"
#include "tests/support/dice.h"
#include "tests/support/run_options.h"

namespace vorlatch::tests::random {
namespace {

using faults::FailingCall;
using faults::Fault;

// Short stories that together take two thirds of the paths that 300 stories take.
constexpr std::array<std::uint64_t, 5> kSeedsWithFaults{75, 261, 219, 117, 196};

std::vector<FailingCall> callsOf(std::uint64_t seed) {
  const Outcome outcome = play(seed, allSteps(seed), std::vector<Fault>{});
  EXPECT_EQ(outcome.failure, "") << "seed " << seed;
  return outcome.calls;
}

void expectSurvived(std::uint64_t seed, const std::vector<Fault>& faults) {
  const Outcome outcome = play(seed, allSteps(seed), faults);
  if (outcome.failure.empty()) return;
  std::string text;
  for (const auto& [call, number] : faults) {
    text += ' ' + std::to_string(call) + ':' + std::to_string(number);
  }
  ADD_FAILURE() << "seed " << seed << " with faults" << text << '\n' << outcome.failure;
}

TEST(RandomStories, GoAsTheRulesSay) {
  const auto& [duration, first, stories] = runOptions();
  for (std::uint64_t seed = first; seed < first + stories; ++seed) {
    if (play(seed, allSteps(seed)).failure.empty()) continue;
    FAIL() << "seed " << seed << ", only the steps that it needs:\n" << shrunk(seed);
  }
}

class Faults : public testing::TestWithParam<std::size_t> {};
constexpr std::size_t kShards = 3;

// Calls that the daemon makes on one path are alike, so only the first of them fails.
TEST_P(Faults, AreSurvivedAlone) {
  std::set<std::uint64_t> paths;
  int runs = 0;
  for (const std::uint64_t seed : kSeedsWithFaults) {
    const std::vector<FailingCall> calls = callsOf(seed);
    for (std::size_t call = 0; call < calls.size(); ++call) {
      if (!paths.insert(calls[call].path).second || paths.size() % kShards != GetParam()) continue;
      for (std::size_t outcome = 0; outcome < calls[call].outcomes; ++outcome, ++runs) {
        expectSurvived(seed, {{.call = call, .outcome = outcome}});
      }
    }
  }
  RecordProperty("paths", static_cast<int>(paths.size()));
  RecordProperty("runs", runs);
}

INSTANTIATE_TEST_SUITE_P(Shard, Faults, testing::Range<std::size_t>(0, kShards));

// Half of the second faults come soon after the first, while the daemon handles it.
TEST(FaultPairs, AreSurvived) {
  constexpr std::size_t kClose = 12;
  const auto& [duration, first_run, runs] = runOptions();
  Dice dice(first_run);
  for (const std::uint64_t seed : kSeedsWithFaults) {
    const std::size_t calls = callsOf(seed).size();
    for (std::uint64_t run = 0; run < runs / kSeedsWithFaults.size(); ++run) {
      const std::size_t first = dice.below(calls - kClose);
      const std::size_t second = first + 1 + dice.below(dice.oneIn(2) ? kClose : calls - first - 1);
      expectSurvived(seed, {{.call = first, .outcome = dice.below(64)},
                            {.call = second, .outcome = dice.below(64)}});
    }
  }
}

}  // namespace
}  // namespace vorlatch::tests::random
