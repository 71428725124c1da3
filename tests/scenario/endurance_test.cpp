// The daemon runs for months, so that repeated work must not leak memory or descriptors.
#include <malloc.h>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Story;
using namespace std::chrono_literals;

struct Busy : Story {
  Busy() {
    device.is_tracing = false;
    device.launch({.name = "gamma"});
    startAndSettle();
  }
  // A pass with an edit, a start, an exit and a removal; every fourth pass is switched off. Before
  // the next, watch timers tick and the patrol sweeps.
  void pass(int number) {
    const auto pid = device.launch({.name = "alpha"});
    writePreferences(
        {{"Enabled", number % 4 != 0},
         {"LogSizeLimit", 4096},
         {"AppConfigs",
          Dictionary{{"alpha", Dictionary{{"NiceValue", number % 20}, {"CheckInterval", 600}}},
                     {"beta-" + std::to_string(number % 7), Dictionary{{"StripManaged", true}}},
                     {"gamma", Dictionary{}}}}});
    postAndRun();
    device.exit(pid);
    run(2h);
  }
};

TEST(Endurance, MemoryAndFilesStayFlatOver80Days) {
  constexpr std::size_t kAllowedGrowthBytes = std::size_t{64} * 1024;
  Busy busy;
  for (int i = 0; i < 10; ++i) busy.pass(i);
  const std::size_t bytes_after_ten = mallinfo2().uordblks;
  const std::size_t files_after_ten = tests::openFiles();
  for (int i = 10; i < 1000; ++i) busy.pass(i);
  EXPECT_LE(mallinfo2().uordblks, bytes_after_ten + kAllowedGrowthBytes);
  EXPECT_EQ(tests::openFiles(), files_after_ten);
}

}  // namespace
}  // namespace vorlatch
