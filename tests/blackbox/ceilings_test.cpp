// What the daemon uses of the machine, and which posts it hears.
#include <cstdint>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

constexpr std::int64_t kGrowthMaxKb = 64;
constexpr int kWarmUp = 10;
constexpr int kEdits = 35;

TEST(Ceilings, HoldOverPassesAndAtRest) {
  Installation installation;
  const Program program = programNamed(installation.path(""), ownName("ceiling"));
  const Target target(program);
  installation.start();
  const pid_t daemon = installation.daemon();
  ResourceUse warm{};
  for (int edit = 1; edit <= kEdits; ++edit) {
    const plist::Dictionary settings{{"Remark", "edit " + std::to_string(edit)}};
    installation.writePreferences(preferencesWith({{program.key, settings}}));
    installation.post();
    ASSERT_TRUE(installation.skipLogTo(doneLine(program.key, target.pid())));
    if (edit == kWarmUp) warm = resourceUseOf(daemon);
  }
  expectNoMore(resourceUseOf(daemon), warm, kGrowthMaxKb);

  installation.waitForQuiet();
  const ResourceUse before = resourceUseOf(daemon);
  const std::int64_t switches_before = voluntarySwitches(daemon);
  EXPECT_TRUE(installation.watch().staysQuietFor(std::chrono::seconds(3)));
  [[maybe_unused]] const std::int64_t switches = voluntarySwitches(daemon) - switches_before;
#ifndef VORLATCH_SANITIZED  // a sanitizer may add threads
  EXPECT_LE(switches, before.threads);
#endif
  expectNoMore(resourceUseOf(daemon), before, kGrowthMaxKb);
}

TEST(Posts, MakeOnePassEachInTheirOwnRootAlone) {
  Installation roots[2];
  for (Installation& root : roots) root.start();
  for (Installation& posted : roots) {
    Installation& other = &posted == roots ? roots[1] : roots[0];
    const int passes_before = posted.passes();
    const int others_before = other.passes();
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(posted.pass());
    EXPECT_TRUE(other.watch().staysQuietFor(kQuiet));
    EXPECT_EQ(posted.passes(), passes_before + 3);
    EXPECT_EQ(other.passes(), others_before);
  }
}

}  // namespace
}  // namespace vorlatch
