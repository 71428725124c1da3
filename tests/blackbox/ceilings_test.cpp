#include <cstdint>

#include <gtest/gtest.h>

#include "tests/blackbox/installation.h"
#include "tests/blackbox/resource_use.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

constexpr std::int64_t kGrowthMaxKb = 64;

// A daemon with one running target, and edits that each make one pass.
class Ceilings : public testing::Test {
 protected:
  void SetUp() override { installation_.start(); }

  void editUntil(int passes) {
    const std::string done = "[守护] " + program_.key + " PID:";
    for (; edits_ < passes; ++edits_) {
      const plist::Dictionary settings{{"Remark", "edit " + std::to_string(edits_)}};
      const std::size_t lines = installation_.log().size();
      installation_.writePreferences(preferencesWith({{program_.key, settings}}));
      installation_.post();
      ASSERT_TRUE(installation_.waitForLog(lines, done));
    }
  }

  Installation installation_;

 private:
  const Program program_ = programNamed(installation_, ownName("ceiling"));
  const Target target_{program_};
  int edits_ = 0;
};

TEST_F(Ceilings, StayTheSameFromTenToAHundredPasses) {
  editUntil(10);
  const ResourceUse after_ten = resourceUseOf(installation_.daemon());
  editUntil(100);
  expectNoMore(resourceUseOf(installation_.daemon()), after_ten, kGrowthMaxKb);
}

TEST_F(Ceilings, AreNotTouchedByADaemonWithNothingToDo) {
  editUntil(1);
  const pid_t daemon = installation_.daemon();
  EXPECT_TRUE(installation_.waitForQuiet());
  const ResourceUse before = resourceUseOf(daemon);
  const std::int64_t switches_before = voluntarySwitches(daemon);
  EXPECT_TRUE(installation_.watch().staysQuietFor(std::chrono::seconds(5)));
  [[maybe_unused]] const std::int64_t switches = voluntarySwitches(daemon) - switches_before;
#ifndef VORLATCH_SANITIZED  // which may bring threads of its own
  EXPECT_LE(switches, before.threads);
#endif
  expectNoMore(resourceUseOf(daemon), before, kGrowthMaxKb);
}

}  // namespace
}  // namespace vorlatch
