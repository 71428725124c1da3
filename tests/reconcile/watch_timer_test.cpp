#include <algorithm>

#include <gtest/gtest.h>

#include "tests/reconcile/pass_story.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using tests::Alpha;
using tests::every;
using tests::kTargetRule;
using tests::Lines;
using namespace std::chrono_literals;

// The target alpha with a check interval of 5 s.
struct Watched : Alpha {
  explicit Watched(std::int32_t interval_s = 5) : Alpha(every(interval_s)) {}
  [[nodiscard]] Lines tick(std::int32_t interval_s = 5) const {
    return tests::ticked("alpha", interval_s, pid);
  }
  // How often the target was reported during this time.
  std::size_t reportsWithin(std::chrono::nanoseconds duration) {
    const Lines log = runAndTakeLog(duration);
    return static_cast<std::size_t>(std::count(log.begin(), log.end(), kTargetRule));
  }
};

const Lines kExited = tests::exited("alpha");

TEST(WatchTimer, AStoppedTargetIsSilentUntilItStarts) {
  tests::Daemon daemon;
  daemon.settleWith({{"alpha", every(5)}});
  EXPECT_EQ(daemon.runAndTakeLog(1h).size(), 8U);  // the patrol's four lines, twice
  EXPECT_EQ(daemon.takeCalls(), Lines{});
  daemon.run(2s);
  const auto pid = daemon.launch("alpha");
  EXPECT_EQ(daemon.runAndTakeLog(3s), tests::started("alpha", pid));
  EXPECT_EQ(daemon.status(), (Dictionary{{"alpha", tests::entry(pid)}}));
  EXPECT_EQ(daemon.pass(), Lines{});  // the tick told the pass
  EXPECT_EQ(daemon.runAndTakeLog(5s), tests::ticked("alpha", 5, pid));
}

TEST(WatchTimer, TicksOncePerIntervalAfterThePass) {
  Watched watched(1);  // the shortest interval
  for (int tick = 0; tick < 2; ++tick) {
    EXPECT_EQ(watched.runAndTakeLog(1s - 1ns), Lines{});
    EXPECT_EQ(watched.runAndTakeLog(1ns), watched.tick(1));
  }
}

TEST(WatchTimer, AnExitIsSeenOnceAndTheEntryRemoved) {
  Watched watched;
  const Lines restarted = watched.restart();  // between two ticks: only a start
  EXPECT_EQ(watched.runAndTakeLog(5s), restarted);
  watched.device.exit(watched.pid);
  EXPECT_EQ(watched.runAndTakeLog(5s), kExited);
  EXPECT_EQ(watched.status(), Dictionary{});
  EXPECT_EQ(watched.pass(), Lines{});
  EXPECT_EQ(watched.runAndTakeLog(20s), Lines{});
}

TEST(WatchTimer, EditAndRestartSeenByAPassRestartTheInterval) {
  Watched watched;
  watched.run(2s);
  watched.writeTargets({{"alpha", every(10)}});
  EXPECT_EQ(watched.runAndTakeLog(3s), watched.tick());  // edited, but no notification posted
  EXPECT_EQ(watched.pass(), tests::edited("alpha", watched.pid));
  EXPECT_EQ(watched.runAndTakeLog(10s - 1ns), Lines{});
  EXPECT_EQ(watched.runAndTakeLog(1ns), watched.tick(10));
  watched.run(7s);
  const Lines restarted = watched.restart();
  EXPECT_EQ(watched.pass(), restarted);
  EXPECT_EQ(watched.runAndTakeLog(10s - 1ns), Lines{});
  EXPECT_EQ(watched.runAndTakeLog(1ns), watched.tick(10));
}

TEST(WatchTimer, LooksUpItsOwnTargetAlone) {
  Watched watched;
  watched.device.launch({.name = "older", .pid = 90});
  watched.restart();
  watched.device.takeTrace();
  // A tick does not clear an oversized log either.
  watched.writePreferences({{"Enabled", true}, {"LogSizeLimit", 10}});
  EXPECT_EQ(watched.runAndTakeLog(5s), tests::started("alpha", watched.pid));
  EXPECT_EQ(watched.device.takeTrace({"proc_name"}),
            Lines{"proc_name(" + std::to_string(watched.pid) + ", zeros, 256) = 5"});
}

TEST(WatchTimer, TheLongestIntervalNeverTicksInALifetime) {
  Watched watched(INT32_MAX);
  EXPECT_EQ(watched.device.scheduler.timerCount(), 3U);
  EXPECT_EQ(watched.reportsWithin(std::chrono::hours(24 * 365)), 0U);
}

TEST(WatchTimer, ALateTickDoesNotMoveLaterOnes) {
  Watched watched;
  watched.device.scheduler.spend(5'900'000'000);  // within the leeway of one second
  EXPECT_EQ(watched.runAndTakeLog(0s), watched.tick());
  EXPECT_EQ(watched.runAndTakeLog(4100ms - 1ns), Lines{});
  watched.device.scheduler.spend(1'000'000'000);
  EXPECT_EQ(watched.runAndTakeLog(0s), watched.tick());
  watched.device.scheduler.spend(4'700'000'000);
  EXPECT_EQ(watched.runAndTakeLog(0s), watched.tick());
}

TEST(WatchTimer, TicksMissedWhileAPassWasBusyComeAsOne) {
  Watched watched;
  watched.device.script(
      {.function = "proc_listpids", .first = 1, .count = 1, .takes_ns = 17000000000});
  watched.post();
  EXPECT_EQ(watched.reportsWithin(17s), 1U);  // due at 5, 10 and 15 s
  EXPECT_EQ(watched.reportsWithin(3s), 1U);   // the timer keeps its phase: 20 s
}

}  // namespace
}  // namespace vorlatch
