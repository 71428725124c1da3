#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <utility>

#include "tests/random/steps.h"

namespace vorlatch::tests::random {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr auto kPatrolInterval = 1800s;

std::string textOf(nanoseconds time) {
  const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  return ms % 1000 == 0 ? std::to_string(ms / 1000) + " s" : std::to_string(ms) + " ms";
}

Step wait(nanoseconds time) {
  return {"wait " + textOf(time), [time](Stage& stage) { stage.run(time); }};
}

// Waits so that a notification posted right afterwards triggers a pass together with the patrol.
Step waitForPatrol() {
  return {"wait until 150 ms before the patrol", [](Stage& stage) {
            const nanoseconds now(stage.device.scheduler.nowNs());
            const nanoseconds left = kPatrolInterval - (now + 150ms) % kPatrolInterval;
            stage.run(left);
          }};
}

Step anyWait(Dice& dice, Pace pace) {
  const std::vector<nanoseconds> quick = {0ms, 1ms, 100ms, 149ms, 150ms, 151ms, 1s,
                                          5s,  5s,  10s,   30s,   60s,   300s};
  const std::vector<nanoseconds> slow = {1ms,  150ms, 200ms, 1s,    60s,   300s,
                                         600s, 600s,  1800s, 1800s, 3600s, 5h};
  if (dice.percent(12)) return waitForPatrol();
  return wait(dice.of(pace == Pace::Quick ? quick : slow));
}

Step anyPost(Dice& dice) {
  const std::vector<nanoseconds> gaps = {0ms, 1ms, 50ms, 149ms, 150ms, 151ms};
  const std::size_t count = dice.percent(70) ? 1 : 2 + dice.below(6);
  const nanoseconds gap = dice.of(gaps);
  const std::string text =
      count == 1 ? "post" : "post " + std::to_string(count) + " times, " + textOf(gap) + " apart";
  return {text, [=](Stage& stage) {
            for (std::size_t i = 0; i < count; ++i) {
              stage.post();
              if (count > 1) stage.run(gap);
            }
          }};
}

Step stepWallClock(Dice& dice) {
  const std::vector<std::int64_t> seconds = {-86400, -3600, -1, 1, 3600, 40'000'000};
  const std::int64_t by = dice.of(seconds);
  return {"the wall clock steps by " + std::to_string(by) + " s",
          [by](Stage& stage) { stage.device.stepWallClock(by); }};
}

const std::vector<Step> kDamages = {
    {"the log is removed", [](Stage& stage) { std::filesystem::remove(stage.story.logFile()); }},
    {"the status file is removed",
     [](Stage& stage) { std::filesystem::remove(stage.story.statusFile()); }},
    {"the status file is closed to others",
     [](Stage& stage) { chmod(stage.story.statusFile().c_str(), 0600); }},
    {"the status file is overwritten", [](Stage& stage) {
       if (modeOf(stage.story.statusFile()) != 0) writeAll(stage.story.statusFile(), "x");
     }}};

Step anyStep(Dice& dice, Pace pace) {
  const std::size_t kind = dice.below(100);
  if (kind < 22) return anyEdit(dice, pace);
  if (kind < 42) return anyPost(dice);
  if (kind < 64) return anyWait(dice, pace);
  if (kind < 83) return anyProcessStep(dice);
  if (kind < 94) return anyRefusal(dice);
  if (kind < 96) return anyBundle(dice);
  return kind < 98 ? dice.of(kDamages) : stepWallClock(dice);
}

}  // namespace

Plan planOf(std::uint64_t seed) {
  Dice dice(seed);
  const Pace pace = dice.percent(40) ? Pace::Quick : Pace::Slow;
  Plan plan{.seed = seed, .steps = {}};
  if (dice.percent(25)) plan.steps.push_back(anyKernel(dice));
  for (std::size_t i = 0; i < 3; ++i) {
    if (dice.percent(80)) plan.steps.push_back(anyBundle(dice));
  }
  for (std::size_t i = 4 + dice.below(14); i > 0; --i) plan.steps.push_back(anyLaunch(dice));
  if (dice.percent(90)) {
    for (Step& edit : firstPreferences(dice, pace)) plan.steps.push_back(std::move(edit));
  }
  if (dice.percent(10)) plan.steps.push_back(anyEdit(dice, pace));
  if (dice.percent(15)) plan.steps.push_back(anyRefusal(dice));
  if (dice.percent(20)) {
    plan.steps.push_back({"there is an old log", [](Stage& stage) {
                            writeAll(stage.story.logFile(), std::string(4000, '.') + '\n');
                          }});
  }
  if (dice.percent(20)) {
    plan.steps.push_back({"there is an old status file",
                          [](Stage& stage) { writeAll(stage.story.statusFile(), "old"); }});
  }
  plan.before_start = plan.steps.size();
  for (std::size_t i = 15 + dice.below(45); i > 0; --i) plan.steps.push_back(anyStep(dice, pace));
  return plan;
}

}  // namespace vorlatch::tests::random
