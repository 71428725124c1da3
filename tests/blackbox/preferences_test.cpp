// When the daemon reads its preferences, and in which forms.
#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"

namespace vorlatch {
namespace {

TEST(PrivilegedPreferences, AreTakenAsXmlAndBinaryAfterAPost) {
  Installation installation;
  const Program program = programNamed(installation.path(""), ownName("edited"));
  const Target target(program);
  const auto limited = [&](int limit_mb) {
    return preferencesWith(
        {{program.key, plist::Dictionary{{"JetsamPriority", -1}, {"MemLimitActive", limit_mb}}}});
  };
  const auto applied = [&](int limit_mb) {
    return appliedLines(program.key, target.pid(), {.memory_limit_mb = limit_mb});
  };
  installation.writePreferences(limited(100));
  installation.start();
  Lines expected =
      startLines(installation.daemon()) + startedLines(program.key, target.pid()) + applied(100);
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);

  ASSERT_TRUE(installation.waitForQuiet());
  installation.writePreferencesBytes(platform::writeBinaryPropertyList(limited(200)));
  EXPECT_TRUE(installation.watch().staysQuietFor(kQuiet));
  installation.post();
  expected = expected + editedLines(program.key, target.pid()) + applied(200);
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);

  installation.writePreferences(limited(300));
  installation.post();
  expected = expected + editedLines(program.key, target.pid()) + applied(300);
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);
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
