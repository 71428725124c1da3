// What the daemon takes of the machine does not grow with its passes, nor while it has nothing to
// do.
#include <cstdint>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

constexpr std::int64_t kGrowthMaxKb = 64;

TEST(Ceilings, HoldOverPassesAndAtRest) {
  Installation installation;
  const Program program = programNamed(installation.path(""), ownName("ceiling"));
  const Target target(program);
  installation.start();
  const pid_t daemon = installation.daemon();
  ResourceUse after_ten{};
  for (int edits = 1; edits <= 100; ++edits) {
    const plist::Dictionary settings{{"Remark", "edit " + std::to_string(edits)}};
    const std::size_t lines = installation.log().size();
    installation.writePreferences(preferencesWith({{program.key, settings}}));
    installation.post();
    ASSERT_TRUE(installation.waitForLog(lines, doneLine(program.key, target.pid())));
    if (edits == 10) after_ten = resourceUseOf(daemon);
  }
  expectNoMore(resourceUseOf(daemon), after_ten, kGrowthMaxKb);

  EXPECT_TRUE(installation.waitForQuiet());
  const ResourceUse before = resourceUseOf(daemon);
  const std::int64_t switches_before = voluntarySwitches(daemon);
  EXPECT_TRUE(installation.watch().staysQuietFor(std::chrono::seconds(5)));
  [[maybe_unused]] const std::int64_t switches = voluntarySwitches(daemon) - switches_before;
#ifndef VORLATCH_SANITIZED  // which may bring threads of its own
  EXPECT_LE(switches, before.threads);
#endif
  expectNoMore(resourceUseOf(daemon), before, kGrowthMaxKb);
}

}  // namespace
}  // namespace vorlatch
