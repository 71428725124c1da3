// The daemon's own code on real threads: passes, watch timers and restores on one queue, sweeps of
// the patrol on the other, both without a pause, while the files, the bundles and the preferences
// change under them. Every few seconds they come to rest, and what they left has to be right.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <latch>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"
#include "daemon/patrol.h"
#include "kernel/jetsam_readback.h"
#include "log/log_file.h"
#include "log/log_line.h"
#include "platform/linux/installation.h"
#include "platform/queues.h"
#include "reconcile/reconciliation_pass.h"
#include "reconcile/work_queues.h"
#include "tests/base/describe.h"
#include "tests/blackbox/target.h"
#include "tests/soak/log_forms.h"
#include "tests/support/dice.h"
#include "tests/support/files.h"
#include "tests/support/run_options.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;
using namespace std::chrono_literals;

constexpr int kNames = 6;
constexpr int kApps = 10;
// Longer than watch timers take to tick.
constexpr auto kFire = 4s;

// A process with settings that an ordinary user may give it too, the highest nice value if need be.
struct Held {
  std::string key;
  int nice;
  int band;
  std::unique_ptr<ChildProcess> process;
};

// A path in the tree in which this program is installed, as a daemon would be.
std::string inTree(const std::string& below) {
  return platform::installationRoot() + "/" + below;
}
std::string fileNamed(const std::string& name) {
  return inTree("var/mobile/Library/Preferences/" + name);
}

// Without what an earlier run left.
bool makeTree() {
  for (const char* made : {"var", "programs", "Applications"}) fs::remove_all(inTree(made));
  return fs::create_directories(fileNamed(""));
}

class ThreadStress : public testing::Test {
 protected:
  // All processes are there before the first thread is.
  ThreadStress() {
    for (int i = 0; i < kNames; ++i) {
      hold(programNamed(inTree(""), ownName("n" + std::to_string(i))));
    }
    for (int i = 0; i < kApps; ++i) {
      const std::string identifier = ownName(".app" + std::to_string(i));
      bundles_.push_back(inTree("Applications/" + identifier + ".app"));
      hold(appIdentified(inTree(""), identifier));
    }
  }

  // Time and again a pass and a patrol's sweep begin at one moment, one on each queue. With
  // the switch, all is switched off now and then, which takes every watch timer away.
  void fireFor(std::chrono::milliseconds duration, bool with_switch) {
    const auto end = Clock::now() + duration;
    while (Clock::now() < end) {
      writePreferences(!with_switch || !dice_.oneIn(16), someTargets());
      const auto both_are_there = std::make_shared<std::latch>(2);
      const auto meet = [both_are_there] {
        both_are_there->arrive_and_wait();
        // More lines in a row than a target has.
        for (int i = 0; i < 200; ++i) writeTargetSeparator();
      };
      platform::async(workerQueue(), meet);
      platform::async(debounceQueue(), patrolTick);
      platform::async(debounceQueue(), meet);
      platform::async(debounceQueue(), executeMemoryLimits);
      moveSomeBundle();
      settleAll();
      lookAtLog();
    }
  }

  // Whatever was under way ends; then one pass and one patrol, each undisturbed, make the status
  // file that of all targets.
  void expectAllInOrder() {
    settleAll();
    Dictionary targets;
    Dictionary status;
    for (const Held& held : held_) {
      targets.emplace(held.key, settingsOf(held, 0, held.band, ++remark_));
      status.emplace(held.key, Dictionary{{status_keys::kPid, held.process->pid()},
                                          {status_keys::kNiceValue, held.nice},
                                          {status_keys::kJetsamPriority, held.band}});
    }
    writePreferences(true, targets);
    for (void (*const work)() : {executeMemoryLimits, patrolTick}) {
      platform::async(debounceQueue(), work);
      settleAll();
    }
    EXPECT_EQ(test::describe(readDictionary(fileNamed(kStatusFileName))), test::describe(status));
    lookAtLog();
  }

  // As far as looks at the log show it.
  bool was_log_cleared_ = false;
  bool has_ticked_ = false;

 private:
  // As many of the first have a watch timer whose settings never change while there is fire.
  static constexpr std::size_t kSteady = 2;

  // To a place where none was, so that its identifier is looked up anew.
  void moveSomeBundle() {
    std::string& bundle = dice_.of(bundles_);
    const std::string old_place = bundle;
    bundle = inTree("Applications/" + std::to_string(++moves_) + ".app");
    fs::rename(old_place, bundle);
  }

  // The kernel shows its list of bands to root alone.
  void hold(const Program& program) {
    const int number = static_cast<int>(held_.size());
    const bool is_root = geteuid() == 0;
    held_.push_back({.key = program.key,
                     .nice = is_root ? 1 + number : 19,
                     .band = is_root ? 100 + number : kNoJetsamPriority,
                     .process = std::make_unique<ChildProcess>(program.executable)});
  }

  // On the queue of the passes and watch timers, with the other one at rest: nothing writes then.
  void lookAtLog() {
    const auto read = std::make_shared<std::string>();
    platform::async(debounceQueue(), [read] { *read = tests::readAll(fileNamed(kLogFileName)); });
    settle(debounceQueue());
    EXPECT_EQ(brokenLines(*read), Lines{});
    was_log_cleared_ |= read->size() < log_bytes_;
    has_ticked_ |= read->find("| 检测: ") != read->npos;
    log_bytes_ = read->size();
  }

  static void writePreferences(bool is_on, const Dictionary& targets) {
    ASSERT_TRUE(writePropertyList(
        fileNamed(kPreferencesFileName),
        Dictionary{{"Enabled", is_on}, {"LogSizeLimit", 50'000}, {"AppConfigs", targets}}));
  }

  // With a new remark, every pass applies them.
  static Dictionary settingsOf(const Held& held, int interval_s, int band, int remark) {
    return {{"NiceValue", held.nice}, {"JetsamPriority", band},      {"MemLimitActive", 100},
            {"StripManaged", true},   {"CheckInterval", interval_s}, {"Remark", remark}};
  }

  // Targets that come and go, with watch timers or without.
  Dictionary someTargets() {
    Dictionary targets{{ownName("absent" + std::to_string(dice_.between(0, 3))), Dictionary{}}};
    for (std::size_t i = 0; i < held_.size(); ++i) {
      const Held& held = held_[i];
      if (i < kSteady) {
        targets.emplace(held.key, settingsOf(held, 1, -1, 0));
      } else if (!dice_.oneIn(4)) {
        // A band is the one setting that is written to a disk each time.
        const int band = dice_.oneIn(8) ? held.band : -1;
        targets.emplace(held.key, settingsOf(held, dice_.between(0, 1), band, ++remark_));
      }
    }
    return targets;
  }

  // Waits until the queue has done what it was sent so far.
  static void settle(platform::SerialQueue& queue) {
    const auto reached = std::make_shared<std::binary_semaphore>(0);
    platform::async(queue, [reached] { reached->release(); });
    ASSERT_TRUE(reached->try_acquire_for(kPatience)) << "a queue stands still";
  }

  // Passes send work to the worker queue, and its sweeps send the ids they saw back.
  static void settleAll() {
    settle(debounceQueue());
    settle(workerQueue());
    settle(debounceQueue());
  }

  const bool has_tree_ = makeTree();
  tests::Dice dice_{tests::runOptions().seed};
  std::vector<Held> held_;
  std::vector<std::string> bundles_;
  int remark_ = 0;
  int moves_ = 0;
  std::size_t log_bytes_ = 0;
};

TEST_F(ThreadStress, LeavesStatusAndLogInOrder) {
  openLog();
  kMainThread.assertHeld();
  makeWorkQueues();
  bool with_switch = false;
  const auto end = Clock::now() + tests::runOptions().duration;
  do {
    fireFor(kFire, with_switch);
    expectAllInOrder();
    with_switch = !with_switch;
  } while (Clock::now() < end && !HasFailure());
  EXPECT_TRUE(was_log_cleared_);
  EXPECT_TRUE(has_ticked_);
}

}  // namespace
}  // namespace vorlatch
