#include <array>
#include <memory>

#include <gtest/gtest.h>

#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kDebounce{150};

TEST(Scheduling, MakesOnePassOfFivePostsAndWaitsForTheLast) {
  Installation installation;
  installation.start();
  // A burst that the machine has stretched beyond the wait is made again.
  constexpr int kAttempts = 20;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    ASSERT_TRUE(installation.waitForQuiet());
    const int passes_before = installation.passes();
    bool in_time = true;
    auto last_post = Clock::now();
    for (int i = 0; i < 5; ++i) {
      const auto begin = Clock::now();
      installation.post();
      in_time = in_time && (i == 0 || Clock::now() - last_post < kDebounce);
      last_post = begin;
    }
    ASSERT_TRUE(installation.waitForPasses(passes_before + 1));
    const auto waited = Clock::now() - last_post;
    if (!in_time) continue;
    EXPECT_TRUE(installation.watch().staysQuietFor(kQuiet));
    EXPECT_EQ(installation.passes(), passes_before + 1);
    EXPECT_GE(waited, kDebounce);
    EXPECT_LT(waited, std::chrono::seconds(5));
    return;
  }
  FAIL() << "the machine is too slow to post again within the wait";
}

TEST(Scheduling, MakesAPassOfEachPostThatComesAfterTheLastPass) {
  Installation installation;
  installation.start();
  for (int pass = 2; pass <= 4; ++pass) {
    installation.post();
    ASSERT_TRUE(installation.waitForPasses(pass));
  }
  EXPECT_TRUE(installation.watch().staysQuietFor(kQuiet));
  EXPECT_EQ(installation.passes(), 4);
}

TEST(Scheduling, HearsThePostsOfItsOwnRootOnly) {
  std::array<Installation, 2> roots;
  for (Installation& root : roots) root.start();
  for (std::size_t i = 0; i < roots.size(); ++i) {
    Installation& posted = roots.at(i);
    Installation& other = roots.at(1 - i);
    const int passes_before = posted.passes();
    const int others_before = other.passes();
    posted.post();
    EXPECT_TRUE(posted.waitForPasses(passes_before + 1));
    EXPECT_TRUE(other.watch().staysQuietFor(kQuiet));
    EXPECT_EQ(other.passes(), others_before);
  }
}

}  // namespace
}  // namespace vorlatch
