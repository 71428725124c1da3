#include <algorithm>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

constexpr int kDefaultBand = 180;

std::string statusOf(const std::string& key, pid_t pid, int nice, int band) {
  return "\"" + key + "\": {\"n\": " + std::to_string(nice) + ", \"p\": " + std::to_string(band) +
         ", \"pid\": " + std::to_string(pid) + "}";
}

// Each line of the log is looked at once, in its order, and none is left over.
class PrivilegedTargets : public testing::Test {
 protected:
  void TearDown() override { EXPECT_EQ(installation_.logBehind(lines_seen_, 0), Lines{}); }

  // That many of the lines not yet looked at; fewer when they do not come.
  Lines nextLines(std::size_t count) {
    Lines lines = installation_.logBehind(lines_seen_, count);
    lines.resize(std::min(lines.size(), count));
    lines_seen_ += lines.size();
    return lines;
  }
  void apply(const plist::Dictionary& targets) {
    installation_.writePreferences(preferencesWith(targets));
    installation_.post();
  }
  void expectLines(const Lines& expected) { EXPECT_EQ(nextLines(expected.size()), expected); }
  void expectStatus(const std::string& entries) {
    EXPECT_EQ(installation_.statusOnce("{" + entries + "}"), "{" + entries + "}");
  }
  void start() {
    installation_.start();
    expectLines(startLines(installation_.daemon()));
  }

  Installation installation_;

 private:
  std::size_t lines_seen_ = 0;
};

// Follows a program from its start to its end under settings that move everything.
class PrivilegedTargetsOfEachKind : public PrivilegedTargets {
 protected:
  void expectHeldFromStartToExit(const Program& program) {
    installation_.writePreferences(
        preferencesWith({{program.key, plist::Dictionary{{"JetsamPriority", 160},
                                                         {"NiceValue", -7},
                                                         {"MemLimitActive", 300},
                                                         {"StripManaged", true}}}}));
    start();
    EXPECT_EQ(installation_.status(), "missing");

    Target target(program);
    installation_.post();
    expectLines(startedLines(program.key, target.pid()) +
                appliedLines(program.key, target.pid(),
                             {.memory_limit_mb = 300, .nice = -7, .band = 160, .stripped = true}));
    EXPECT_EQ(target.nice(), -7);
    expectStatus(statusOf(program.key, target.pid(), -7, 160));

    target.kill();
    installation_.post();
    expectLines(exitedLines(program.key));
    expectStatus("");
  }
};

TEST_F(PrivilegedTargetsOfEachKind, AreFoundByTheirName) {
  expectHeldFromStartToExit(programNamed(installation_, ownName("name")));
}

TEST_F(PrivilegedTargetsOfEachKind, AreFoundByANameLongerThanLinuxKeeps) {
  expectHeldFromStartToExit(programNamed(installation_, ownName("long", 25)));
}

TEST_F(PrivilegedTargetsOfEachKind, AreFoundByTheirBundleIdentifier) {
  expectHeldFromStartToExit(appIdentified(installation_, "org.example." + ownName("app")));
}

TEST_F(PrivilegedTargetsOfEachKind, MayBearNamesThatAreFormats) {
  expectHeldFromStartToExit(programNamed(installation_, ownName("%s%n")));
}

TEST_F(PrivilegedTargets, AreHandedBackWhenTheyLeaveTheFile) {
  const Program leaving = programNamed(installation_, ownName("leaves"));
  const Program staying = programNamed(installation_, ownName("stays"));
  const plist::Dictionary settings{{"JetsamPriority", 100}, {"NiceValue", 4}};
  const plist::Dictionary untouched{{"JetsamPriority", -1}};
  start();
  Target leaver(leaving);
  Target stayer(staying);
  apply({{leaving.key, settings}, {staying.key, untouched}});
  expectLines(startedLines(leaving.key, leaver.pid()) +
              appliedLines(leaving.key, leaver.pid(), {.nice = 4, .band = 100}) +
              startedLines(staying.key, stayer.pid()) +
              appliedLines(staying.key, stayer.pid(), {}));
  const std::string stays = statusOf(staying.key, stayer.pid(), 0, kDefaultBand);
  expectStatus(statusOf(leaving.key, leaver.pid(), 4, 100) + ", " + stays);

  apply({{staying.key, untouched}});
  expectLines(removedLines() + restoredLines(leaving.key, leaver.pid()));
  EXPECT_EQ(leaver.nice(), 0);
  expectStatus(stays);

  // What the kernel has of it now: nothing is set, so the status tells what was left behind.
  apply({{leaving.key, untouched}, {staying.key, untouched}});
  expectLines(startedLines(leaving.key, leaver.pid()) +
              appliedLines(leaving.key, leaver.pid(), {}));
  expectStatus(statusOf(leaving.key, leaver.pid(), 0, 0) + ", " + stays);
}

TEST_F(PrivilegedTargets, AreAllHandedBackWhenSwitchedOff) {
  const Program first = programNamed(installation_, ownName("a"));
  const Program second = programNamed(installation_, ownName("b"));
  const plist::Dictionary settings{{"JetsamPriority", 100}, {"NiceValue", -3}};
  start();
  const Target a(first);
  const Target b(second);
  apply({{first.key, settings}, {second.key, settings}});
  expectLines(startedLines(first.key, a.pid()) +
              appliedLines(first.key, a.pid(), {.nice = -3, .band = 100}) +
              startedLines(second.key, b.pid()) +
              appliedLines(second.key, b.pid(), {.nice = -3, .band = 100}));

  installation_.writePreferences(plist::Dictionary{{"Enabled", false}});
  installation_.post();
  expectLines(switchedOffLines() + restoredLines(first.key, a.pid()) +
              restoredLines(second.key, b.pid()));
  EXPECT_EQ(a.nice(), 0);
  EXPECT_EQ(b.nice(), 0);
  expectStatus("");

  apply({{first.key, settings}});
  expectLines(startedLines(first.key, a.pid()) +
              appliedLines(first.key, a.pid(), {.nice = -3, .band = 100}));
  expectStatus(statusOf(first.key, a.pid(), -3, 100));
}

TEST_F(PrivilegedTargets, AreWatchedEverySecond) {
  const Program program = programNamed(installation_, ownName("watched"));
  installation_.writePreferences(preferencesWith(
      {{program.key,
        plist::Dictionary{{"JetsamPriority", 160}, {"NiceValue", -7}, {"CheckInterval", 1}}}}));
  start();
  Target target(program);
  const auto started = Clock::now();
  expectLines(startedLines(program.key, target.pid()) +
              appliedLines(program.key, target.pid(), {.nice = -7, .band = 160}));
  // One interval, one second of leeway, and what a busy machine adds.
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(6));

  const auto tick = [&](int nice_before) {
    return tickedLines(program.key, 1, target.pid()) +
           appliedLines(program.key, target.pid(),
                        {.nice = -7, .nice_before = nice_before, .band = 160});
  };
  setNice(target.pid(), 9);
  // On a busy machine ticks may have come before the change.
  Lines lines = nextLines(tick(-7).size());
  while (lines == tick(-7)) lines = nextLines(tick(-7).size());
  EXPECT_EQ(lines + nextLines(1), tick(9));
  EXPECT_EQ(target.nice(), -7);
  expectLines(tick(-7));
  expectStatus(statusOf(program.key, target.pid(), -7, 160));

  target.kill();
  expectLines(exitedLines(program.key));
  expectStatus("");
}

TEST_F(PrivilegedTargets, KeepTheirBandWhenTheDaemonIsKilledAndAreTakenUpAgain) {
  const Program program = programNamed(installation_, ownName("kept"));
  start();
  const Target target(program);
  apply({{program.key, plist::Dictionary{{"JetsamPriority", 160}, {"NiceValue", -7}}}});
  expectLines(startedLines(program.key, target.pid()) +
              appliedLines(program.key, target.pid(), {.nice = -7, .band = 160}));
  installation_.stop();
  EXPECT_EQ(target.nice(), -7);

  // An entry of the earlier run that nothing in the file asks for any more.
  tests::writeAll(installation_.statusPath(), "an old status");
  installation_.writePreferences(preferencesWith(
      {{program.key, plist::Dictionary{{"JetsamPriority", -1}, {"NiceValue", -7}}}}));
  installation_.start();
  expectLines(startLines(installation_.daemon()) + startedLines(program.key, target.pid()) +
              appliedLines(program.key, target.pid(), {.nice = -7, .nice_before = -7}));
  expectStatus(statusOf(program.key, target.pid(), -7, 160));

  apply({{program.key, plist::Dictionary{{"JetsamPriority", 100}, {"NiceValue", -7}}}});
  expectLines(
      editedLines(program.key, target.pid()) +
      appliedLines(program.key, target.pid(), {.nice = -7, .nice_before = -7, .band = 100}));
  expectStatus(statusOf(program.key, target.pid(), -7, 100));
}

}  // namespace
}  // namespace vorlatch
