// The daemon's own code on real threads: passes, watch timers and restores on one queue, sweeps of
// the patrol on the other, both without a pause, while the files, the bundles and the preferences
// change under them. Every second they come to rest, and what they left has to be right.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <latch>
#include <memory>
#include <semaphore>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "config/log_file.h"
#include "config/log_line.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"
#include "daemon/patrol.h"
#include "platform/linux/installation.h"
#include "platform/property_list.h"
#include "platform/queues.h"
#include "reconcile/reconciliation_pass.h"
#include "reconcile/work_queues.h"
#include "tests/blackbox/installation.h"
#include "tests/blackbox/processes.h"
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
constexpr std::int64_t kLogSizeLimitBytes = 50'000;

// A process with settings that an ordinary user may give it too, the highest nice value if need be.
struct Held {
  std::string key;
  int nice;
  int band;
  std::unique_ptr<ChildProcess> process;
};

// The tree in which this program is installed, as a daemon would be.
class Tree {
 public:
  Tree() {
    for (const char* made : {"var", "programs", "Applications"}) fs::remove_all(path(made));
    for (const char* needed : {"var/mobile/Library/Preferences", "programs", "Applications"}) {
      fs::create_directories(path(needed));
    }
  }
  static std::string path(const std::string& below) {
    return platform::installationRoot() + "/" + below;
  }
  static std::string file(const std::string& name) {
    return path("var/mobile/Library/Preferences/" + name);
  }
};

// An app whose bundle takes another place again and again, so that its identifier is looked up
// anew.
class MovingApp {
 public:
  explicit MovingApp(std::string identifier) : identifier_(std::move(identifier)) {
    fs::create_directories(bundle());
    fs::copy_file(VORLATCH_IDLER, executable());
    tests::writeAll(bundle() + "/Info.plist", platform::writeXmlPropertyList(
                                                  Dictionary{{"CFBundleIdentifier", identifier_}}));
  }
  [[nodiscard]] std::string executable() const { return bundle() + "/app"; }
  void move() {
    const std::string old_place = bundle();
    ++place_;
    fs::rename(old_place, bundle());
  }

 private:
  [[nodiscard]] std::string bundle() const {
    return Tree::path("Applications/" + identifier_ + "-" + std::to_string(place_) + ".app");
  }

  const std::string identifier_;
  int place_ = 0;
};

class ThreadStress : public testing::Test {
 protected:
  // All processes are there before the first thread is.
  ThreadStress() {
    for (int i = 0; i < kNames; ++i) {
      const std::string name = ownName("n" + std::to_string(i));
      const std::string program = Tree::path("programs/" + name);
      fs::copy_file(VORLATCH_IDLER, program);
      hold(name, program);
    }
    for (int i = 0; i < kApps; ++i) {
      const std::string identifier = ownName(".app" + std::to_string(i));
      apps_.emplace_back(identifier);
      hold(identifier, apps_.back().executable());
    }
  }

  // Time and again a pass and a patrol's sweep begin at one moment, one on each queue.
  void fireFor(std::chrono::milliseconds duration) {
    const auto end = Clock::now() + duration;
    while (Clock::now() < end) {
      ASSERT_TRUE(writePropertyList(Tree::file(kPreferencesFileName), someList()));
      const auto both_are_there = std::make_shared<std::latch>(2);
      const auto meet = [both_are_there] {
        both_are_there->arrive_and_wait();
        writeManyLines();
      };
      platform::async(workerQueue(), meet);
      platform::async(debounceQueue(), patrolTick);
      platform::async(debounceQueue(), meet);
      platform::async(debounceQueue(), executeMemoryLimits);
      dice_.of(apps_).move();
      for (const char* name : {kPreferencesFileName, kStatusFileName}) {
        ASSERT_TRUE(readPropertyList(Tree::file(name)) || !fs::exists(Tree::file(name))) << name;
      }
      settleAll();
      expectWholeLog();
      ++passes_;
    }
  }

  // Whatever was under way ends; then one pass and one patrol, each undisturbed.
  void calmDown() {
    settleAll();
    ASSERT_TRUE(writePropertyList(Tree::file(kPreferencesFileName), listOf(settingsOfAll())));
    platform::async(debounceQueue(), executeMemoryLimits);
    settleAll();
    platform::async(debounceQueue(), patrolTick);
    settleAll();
  }

  void expectAllInOrder() {
    const std::string status = textOf(readDictionary(Tree::file(kStatusFileName)));
    EXPECT_EQ(status, textOf(statusOfAll()));
    for (const Held& held : held_) EXPECT_EQ(niceOf(held.process->pid()), held.nice) << held.key;
    expectWholeLog();
  }

  int passes_ = 0;
  int cleared_logs_ = 0;

 private:
  static constexpr int kFirstNice = 1;

  void hold(const std::string& key, const std::string& program) {
    const int number = static_cast<int>(held_.size());
    const bool is_root = geteuid() == 0;
    held_.push_back({.key = key,
                     .nice = is_root ? kFirstNice + number : 19,
                     .band = is_root ? 100 + number : -999,
                     .process = std::make_unique<ChildProcess>(program)});
  }

  // More of them in a row than a target has.
  static void writeManyLines() {
    for (int i = 0; i < 200; ++i) writeTargetSeparator();
  }

  // Nothing writes at present.
  void expectWholeLog() {
    const std::string log = tests::readAll(Tree::file(kLogFileName));
    EXPECT_EQ(brokenLines(log), Lines{});
    if (log.find("已自动清空") != log.npos) ++cleared_logs_;
  }

  static Dictionary listOf(Dictionary targets) {
    return {{"Enabled", true},
            {"LogSizeLimit", kLogSizeLimitBytes},
            {"AppConfigs", std::move(targets)}};
  }

  // Each time with another remark, so that every pass applies them.
  Dictionary settingsOf(const Held& held, int interval_s, int band) {
    return {{"NiceValue", held.nice}, {"JetsamPriority", band},      {"MemLimitActive", 100},
            {"StripManaged", true},   {"CheckInterval", interval_s}, {"Remark", ++remark_}};
  }

  Dictionary settingsOfAll() {
    Dictionary targets;
    for (const Held& held : held_) targets.emplace(held.key, settingsOf(held, 0, held.band));
    return targets;
  }

  // Targets that come and go, with watch timers or without, and the switch now and then off.
  Dictionary someList() {
    Dictionary targets{{ownName("absent" + std::to_string(dice_.between(0, 3))), Dictionary{}}};
    for (const Held& held : held_) {
      // A band is the one setting that is written to a disk each time.
      const int band = dice_.oneIn(8) ? held.band : -1;
      if (!dice_.oneIn(4)) targets.emplace(held.key, settingsOf(held, dice_.between(0, 1), band));
    }
    Dictionary list = listOf(std::move(targets));
    list.insert_or_assign("Enabled", !dice_.oneIn(16));
    return list;
  }

  [[nodiscard]] Dictionary statusOfAll() const {
    Dictionary status;
    for (const Held& held : held_) {
      status.emplace(held.key, Dictionary{{status_keys::kPid, held.process->pid()},
                                          {status_keys::kNiceValue, held.nice},
                                          {status_keys::kJetsamPriority, held.band}});
    }
    return status;
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

  const Tree tree_;
  tests::Dice dice_{tests::runOptions().seed};
  std::vector<Held> held_;
  std::vector<MovingApp> apps_;
  int remark_ = 0;
};

TEST_F(ThreadStress, LeavesStatusProcessesAndLogInOrder) {
  openLog();
  kMainThread.assertHeld();
  makeWorkQueues();
  int calms = 0;
  const auto end = Clock::now() + tests::runOptions().duration;
  do {
    fireFor(1s);
    calmDown();
    expectAllInOrder();
    ++calms;
  } while (Clock::now() < end && !HasFailure());
  EXPECT_GT(cleared_logs_, 0) << "the log was never cleared";
  RecordProperty("passes and sweeps", passes_);
  RecordProperty("calms", calms);
  RecordProperty("logs that were cleared", cleared_logs_);
}

}  // namespace
}  // namespace vorlatch
