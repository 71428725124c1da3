// The daemon runs for months, so that repeated work must not leak memory or descriptors.
#include <malloc.h>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Story;
using namespace std::chrono_literals;

constexpr std::size_t kAllowedGrowthBytes = std::size_t{64} * 1024;

struct Busy : Story {
  Busy() {
    device.is_tracing = false;
    startAndSettle();
  }
  // A pass with an edit, a start, an exit and a removal; every fourth pass is switched off.
  void pass(int number) {
    const auto pid = device.launch({.name = "alpha"});
    writePreferences(
        {{"Enabled", number % 4 != 0},
         {"LogSizeLimit", 4096},
         {"AppConfigs",
          Dictionary{{"alpha", Dictionary{{"NiceValue", number % 20}, {"CheckInterval", 60}}},
                     {"beta-" + std::to_string(number % 7), Dictionary{{"StripManaged", true}}}}}});
    postAndRun();
    device.exit(pid);
  }
};

TEST(Endurance, MemoryAndFilesStayFlatOver1000Passes) {
  Busy busy;
  for (int i = 0; i < 10; ++i) busy.pass(i);
  const std::size_t bytes_after_ten = mallinfo2().uordblks;
  const std::size_t files_after_ten = tests::openFiles();
  for (int i = 10; i < 1000; ++i) busy.pass(i);
  EXPECT_LE(mallinfo2().uordblks, bytes_after_ten + kAllowedGrowthBytes);
  EXPECT_EQ(tests::openFiles(), files_after_ten);
}

TEST(Endurance, MemoryStaysFlatOver60Days) {
  Story story;
  story.device.is_tracing = false;
  story.device.launch({.name = "alpha"});
  story.device.launch({.name = "beta"});
  story.writeTargets({{"alpha", Dictionary{{"CheckInterval", 3600}}}, {"beta", Dictionary{}}});
  story.startAndSettle();
  story.run(24h);
  const std::size_t bytes_after_a_day = mallinfo2().uordblks;
  for (int day = 1; day < 60; ++day) story.run(24h);
  EXPECT_LE(mallinfo2().uordblks, bytes_after_a_day + kAllowedGrowthBytes);
}

}  // namespace
}  // namespace vorlatch
