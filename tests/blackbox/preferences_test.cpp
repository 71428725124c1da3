#include <algorithm>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/property_list_bytes.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

plist::Dictionary limited(int limit_mb) {
  return {{"JetsamPriority", -1}, {"MemLimitActive", limit_mb}};
}

// Holds on the way to success and to failure.
std::string triedLimit(int limit_mb) {
  return "[内存限制] 目标 Act:" + std::to_string(limit_mb) + " Inact:0 ";
}

// How many lines the log has up to the last one that begins so.
std::size_t linesUpTo(const Installation& installation, const std::string& beginning) {
  const Lines lines = installation.log();
  const auto last = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string& line) {
    return line.starts_with(beginning);
  });
  return static_cast<std::size_t>(lines.rend() - last);
}

TEST(PrivilegedPreferences, AreTakenInXmlAndInBinaryForm) {
  Installation installation;
  const Program program = programNamed(installation, ownName("edited"));
  const Target target(program);
  installation.writePreferences(preferencesWith({{program.key, limited(100)}}));
  installation.start();
  Lines expected = startLines(installation.daemon()) + startedLines(program.key, target.pid()) +
                   appliedLines(program.key, target.pid(), {.memory_limit_mb = 100});
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);

  installation.writePreferencesBytes(
      binaryPropertyList(preferencesWith({{program.key, limited(200)}})));
  ASSERT_TRUE(installation.waitForQuiet());
  EXPECT_TRUE(installation.watch().staysQuietFor(std::chrono::milliseconds(400)));
  installation.post();
  expected = expected + editedLines(program.key, target.pid()) +
             appliedLines(program.key, target.pid(), {.memory_limit_mb = 200});
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);

  installation.writePreferences(preferencesWith({{program.key, limited(300)}}));
  installation.post();
  expected = expected + editedLines(program.key, target.pid()) +
             appliedLines(program.key, target.pid(), {.memory_limit_mb = 300});
  EXPECT_EQ(installation.logBehind(0, expected.size()), expected);
}

TEST(Preferences, EndInTheirLastStateWhenReplacedInABurst) {
  Installation installation;
  const Program program = programNamed(installation, ownName("burst"));
  const Target target(program);
  installation.start();
  constexpr int kReplacements = 200;
  constexpr int kReplacementsPerPost = 10;
  for (int i = 1; i <= kReplacements; ++i) {
    const auto edited = preferencesWith({{program.key, limited(i)}});
    installation.writePreferencesBytes(i % 2 == 0 ? platform::writeXmlPropertyList(edited)
                                                  : binaryPropertyList(edited));
    if (i % kReplacementsPerPost == 0) installation.post();
  }
  ASSERT_TRUE(installation.waitForLog(0, triedLimit(kReplacements)));
  const std::string done =
      "[守护] " + program.key + " PID:" + std::to_string(target.pid()) + " 完成";
  EXPECT_TRUE(installation.waitForLog(linesUpTo(installation, triedLimit(kReplacements)), done));
  // The last post may find done already what it asks for.
  EXPECT_TRUE(installation.waitForQuiet());
  EXPECT_EQ(installation.log().back(), done);
}

TEST(Preferences, MayNameTargetsThatNoProcessCanBear) {
  Installation installation;
  const Program ordinary = programNamed(installation, ownName("plain"));
  const Program two_lines = programNamed(installation, ownName("\n%n"));
  const Target plain(ordinary);
  const Target lines(two_lines);
  installation.writePreferences(preferencesWith({
      {ordinary.key, limited(1)},
      {two_lines.key, limited(2)},
      {"", limited(3)},
      {"%s%n%s%n%s%n", limited(4)},
      {"../../../../../../etc/passwd", limited(5)},
      {"/var/mobile", limited(6)},
      {std::string(10'000, 'k'), limited(7)},
      {"\n[06-01 12:00:00] [内核] ：成功\n", limited(8)},
  }));
  installation.start();
  EXPECT_TRUE(installation.waitForLog(0, triedLimit(1)));
  EXPECT_TRUE(installation.waitForLog(0, triedLimit(2)));

  // Of those that do not run nothing is written, not even when they are handed back.
  installation.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation.post();
  EXPECT_TRUE(installation.waitForLog(0, "[恢复] 目标: " + ordinary.key + " PID: "));
  EXPECT_EQ(installation.statusOnce("{}"), "{}");
  for (int limit_mb = 3; limit_mb <= 8; ++limit_mb) {
    EXPECT_EQ(tests::readAll(installation.logPath()).find(triedLimit(limit_mb)), std::string::npos);
  }
  const std::string log = tests::readAll(installation.logPath());
  EXPECT_NE(log.find("] [进程] 目标: " + two_lines.key +
                     " 已启动 PID: " + std::to_string(lines.pid()) + " \n"),
            log.npos);
}

}  // namespace
}  // namespace vorlatch
