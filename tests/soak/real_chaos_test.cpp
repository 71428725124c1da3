// The installed daemon, chaos and calm in turn, for as long as it is told to: in the first third of
// the time daemons are killed, the last one lives through the rest.
#include <string>

#include <gtest/gtest.h>

#include "tests/blackbox/memory_file_system.h"
#include "tests/soak/chaos.h"
#include "tests/support/run_options.h"

namespace vorlatch {
namespace {

using namespace std::chrono_literals;

TEST(PrivilegedRealChaos, EndsInCalm) {
  leaveTheMachinesMounts();
  const auto begin = Clock::now();
  const auto duration = tests::runOptions().duration;
  Chaos chaos(tests::runOptions().seed);
  bool has_foreign_editors = true;
  while ((Clock::now() < begin + duration || chaos.calmsOfThisLife() < 2) && !HasFailure()) {
    chaos.rage({.duration = 6s,
                .has_foreign_editors = has_foreign_editors,
                .kills_the_daemon = Clock::now() < begin + duration / 3});
    if (HasFailure()) break;
    chaos.expectCalm();
    has_foreign_editors = !has_foreign_editors;
  }
  chaos.finish();
  for (const auto& [name, figure] : chaos.figures()) RecordProperty(name, figure);
  RecordProperty("seed", std::to_string(tests::runOptions().seed));
  if (!HasFailure()) chaos.expectNoGrowth();
}

}  // namespace
}  // namespace vorlatch
