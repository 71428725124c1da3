// Targets on real processes, with every line of the log and the whole status file.
#include <algorithm>

#include <gtest/gtest.h>

#include "tests/blackbox/expected_log.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/target.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

using plist::Dictionary;

constexpr int kDefaultBand = 180;

// Each line of the log is looked at once, in its order, and none is left over.
class PrivilegedTargets : public testing::Test {
 protected:
  PrivilegedTargets() { start(); }
  void TearDown() override { EXPECT_EQ(installation_.logBehind(lines_seen_, 0), Lines{}); }

  // That many of the lines not yet looked at; fewer when they do not come.
  Lines nextLines(std::size_t count) {
    Lines lines = installation_.logBehind(lines_seen_, count);
    lines.resize(std::min(lines.size(), count));
    lines_seen_ += lines.size();
    return lines;
  }
  void apply(const Dictionary& targets) {
    installation_.writePreferences(preferencesWith(targets));
    installation_.post();
  }
  void expectLines(const Lines& expected) { EXPECT_EQ(nextLines(expected.size()), expected); }
  void expectStatus(const std::string& entries) {
    EXPECT_EQ(installation_.statusOnce("{" + entries + "}"), "{" + entries + "}");
  }
  void start() {
    installation_.start();
    EXPECT_EQ(niceOf(installation_.daemon()), -20);
    expectLines(startLines(installation_.daemon()));
  }
  Program program(const std::string& name) {
    return programNamed(installation_.path(""), ownName(name));
  }

  Installation installation_;

 private:
  std::size_t lines_seen_ = 0;
};

TEST_F(PrivilegedTargets, OfEachKindAreHeldFromStartToExit) {
  const std::string root = installation_.path("");
  const std::vector<Program> kinds{program("name"), programNamed(root, ownName("long", 25)),
                                   program("%s%n"),
                                   appIdentified(root, "org.example." + ownName("app"))};
  const Dictionary settings{
      {"JetsamPriority", 160}, {"NiceValue", -7}, {"MemLimitActive", 300}, {"StripManaged", true}};
  Dictionary targets;
  for (const Program& kind : kinds) targets.emplace(kind.key, settings);
  installation_.writePreferences(preferencesWith(targets));
  ASSERT_TRUE(installation_.pass());
  EXPECT_EQ(installation_.status(), "missing");

  for (const Program& kind : kinds) {
    SCOPED_TRACE(kind.key);
    Target target(kind);
    installation_.post();
    expectLines(startedLines(kind.key, target.pid()) +
                appliedLines(kind.key, target.pid(),
                             {.memory_limit_mb = 300, .nice = -7, .band = 160, .stripped = true}));
    EXPECT_EQ(target.nice(), -7);
    expectStatus(statusOf(kind.key, target.pid(), -7, 160));

    target.kill();
    installation_.post();
    expectLines(exitedLines(kind.key));
    expectStatus("");
  }
}

TEST_F(PrivilegedTargets, AreHandedBackWhenRemovedOrSwitchedOff) {
  const Program leaving = program("leaves");
  const Program staying = program("stays");
  const Dictionary settings{{"JetsamPriority", 100}, {"NiceValue", -3}};
  const Dictionary untouched{{"JetsamPriority", -1}};
  const Target leaver(leaving);
  const Target stayer(staying);
  const Lines taken_up = startedLines(leaving.key, leaver.pid()) +
                         appliedLines(leaving.key, leaver.pid(), {.nice = -3, .band = 100});
  apply({{leaving.key, settings}, {staying.key, untouched}});
  expectLines(taken_up + startedLines(staying.key, stayer.pid()) +
              appliedLines(staying.key, stayer.pid(), {}));
  const std::string stays = statusOf(staying.key, stayer.pid(), 0, kDefaultBand);
  expectStatus(statusOf(leaving.key, leaver.pid(), -3, 100) + stays);

  apply({{staying.key, untouched}});
  expectLines(removedLines() + restoredLines(leaving.key, leaver.pid()));
  EXPECT_EQ(leaver.nice(), 0);
  expectStatus(stays);

  // What the kernel has of it now: nothing is set, so the status tells what was left behind.
  apply({{leaving.key, untouched}, {staying.key, untouched}});
  expectLines(startedLines(leaving.key, leaver.pid()) +
              appliedLines(leaving.key, leaver.pid(), {}));
  expectStatus(statusOf(leaving.key, leaver.pid(), 0, 0) + stays);

  apply({{leaving.key, settings}, {staying.key, settings}});
  expectLines(editedLines(leaving.key, leaver.pid()) +
              appliedLines(leaving.key, leaver.pid(), {.nice = -3, .band = 100}) +
              editedLines(staying.key, stayer.pid()) +
              appliedLines(staying.key, stayer.pid(), {.nice = -3, .band = 100}));
  installation_.writePreferences(Dictionary{{"Enabled", false}});
  installation_.post();
  expectLines(switchedOffLines() + restoredLines(leaving.key, leaver.pid()) +
              restoredLines(staying.key, stayer.pid()));
  EXPECT_EQ(leaver.nice(), 0);
  EXPECT_EQ(stayer.nice(), 0);
  expectStatus("");

  apply({{leaving.key, settings}});
  expectLines(taken_up);
  expectStatus(statusOf(leaving.key, leaver.pid(), -3, 100));
}

TEST_F(PrivilegedTargets, AreWatchedEverySecond) {
  const Program watched = program("watched");
  Target target(watched);
  const auto started = Clock::now();
  apply({{watched.key,
          Dictionary{{"JetsamPriority", 160}, {"NiceValue", -7}, {"CheckInterval", 1}}}});
  expectLines(startedLines(watched.key, target.pid()) +
              appliedLines(watched.key, target.pid(), {.nice = -7, .band = 160}));
  const auto tick = [&](int nice_before) {
    return tickedLines(watched.key, 1, target.pid()) +
           appliedLines(watched.key, target.pid(),
                        {.nice = -7, .nice_before = nice_before, .band = 160});
  };
  expectLines(tick(-7));
  // One interval, one second of leeway, and what a busy machine adds.
  EXPECT_LT(Clock::now() - started, std::chrono::seconds(6));

  setNice(target.pid(), 9);
  // On a busy machine ticks may have come before the change.
  Lines lines = nextLines(tick(-7).size());
  while (lines == tick(-7)) lines = nextLines(tick(-7).size());
  EXPECT_EQ(lines + nextLines(1), tick(9));
  EXPECT_EQ(target.nice(), -7);
  expectLines(tick(-7));
  expectStatus(statusOf(watched.key, target.pid(), -7, 160));

  target.kill();
  expectLines(exitedLines(watched.key));
  expectStatus("");
}

TEST_F(PrivilegedTargets, AreTakenUpAgainAfterADaemonsDeath) {
  const Program kept = program("kept");
  const Target target(kept);
  apply({{kept.key, Dictionary{{"JetsamPriority", 160}, {"NiceValue", -7}}}});
  expectLines(startedLines(kept.key, target.pid()) +
              appliedLines(kept.key, target.pid(), {.nice = -7, .band = 160}));
  installation_.stop();
  EXPECT_EQ(target.nice(), -7);

  // An entry of the earlier run that nothing in the file asks for any more.
  tests::writeAll(installation_.statusPath(), "an old status");
  installation_.writePreferences(
      preferencesWith({{kept.key, Dictionary{{"JetsamPriority", -1}, {"NiceValue", -7}}}}));
  start();
  expectLines(startedLines(kept.key, target.pid()) +
              appliedLines(kept.key, target.pid(), {.nice = -7, .nice_before = -7}));
  expectStatus(statusOf(kept.key, target.pid(), -7, 160));

  apply({{kept.key, Dictionary{{"JetsamPriority", 100}, {"NiceValue", -7}}}});
  expectLines(editedLines(kept.key, target.pid()) +
              appliedLines(kept.key, target.pid(), {.nice = -7, .nice_before = -7, .band = 100}));
  expectStatus(statusOf(kept.key, target.pid(), -7, 100));
}

}  // namespace
}  // namespace vorlatch
