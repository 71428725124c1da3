// The installed daemon amid everything that other programs, processes and the disk can do to it at
// once. Chaos and calm take turns for as long as the test is told to run: in the first third of the
// time daemons are killed, the last one lives through the rest.
#include <algorithm>
#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "config/status_file.h"
#include "platform/linux/jetsam_state_file.h"
#include "platform/property_list.h"
#include "tests/base/describe.h"
#include "tests/soak/calm.h"
#include "tests/soak/crowd.h"
#include "tests/soak/editors.h"
#include "tests/soak/log_forms.h"
#include "tests/soak/memory_file_system.h"
#include "tests/soak/onlooker.h"
#include "tests/support/files.h"
#include "tests/support/run_options.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;
using std::chrono::milliseconds;
using test::describe;

constexpr int kEditors = 4;
constexpr int kChaosMs = 6000;
// A burst of posts holds off every pass; a pause lets one come.
constexpr int kBurstMaxMs = 1000;
constexpr int kPauseMinMs = 160;
constexpr int kPauseMaxMs = 450;
// Longer than restores take that an earlier pass has handed to the other queue: one that meets the
// next pass may come after it, by design.
constexpr int kRestoresMs = 500;
constexpr std::size_t kLogTailBytes = 4000;
constexpr std::int64_t kGrowthMaxKb = 256;

Dictionary statusEntry(pid_t pid, int nice, int band) {
  return {{status_keys::kPid, pid},
          {status_keys::kNiceValue, nice},
          {status_keys::kJetsamPriority, band}};
}

// Leaves the machine's mounts, for a small disk of its own.
class PrivilegedRealChaos : public testing::Test {
 protected:
  // Starts the daemon and all processes.
  PrivilegedRealChaos() {
    // Every kEditors-th target belongs to the same editor; the last editor has the switch alone.
    std::vector<std::vector<std::string>> keys(kEditors + 1);
    for (std::size_t i = 0; i < crowd_.keys().size(); ++i) {
      keys[i % kEditors].push_back(crowd_.keys()[i]);
    }
    for (auto& own : keys) editors_.emplace_back(installation_, std::move(own), expected_);
    for (const bool is_binary : {false, true}) {
      foreigners_.emplace_back(installation_, is_binary, crowd_.keys());
    }
    // Larger than every limit that an editor sets: however short the chaos is, a log is emptied in
    // it.
    std::string log;
    while (log.size() < 110'000) log += "[01-01 00:00:00] " + std::string(40, '-') + "\n";
    tests::writeAll(installation_.logPath(), log);
    log_size_ = log.size();
    EXPECT_TRUE(
        replaceFile(installation_.preferencesPath(), platform::writeXmlPropertyList(expected_)));
    start();
  }

  void start() {
    started_ = Clock::now();
    status_before_start_ = tests::readAll(installation_.statusPath());
    installation_.startWithoutWaiting();
    installation_.waitUntilPostsAreHeard();
    calms_of_this_life_ = 0;
    first_use_.reset();
  }

  // What the status file then holds is of no process any more, as far as the dead daemon's targets
  // go, and names one that nobody ever configured.
  void killAndStart() {
    installation_.stop();
    ++kills_;
    crowd_.endOneTarget();
    if (!disk_is_full_) {
      Dictionary status = dictionaryIn(installation_.statusPath());
      status.insert_or_assign(ownName("ghost"), statusEntry(1, 0, 0));
      EXPECT_TRUE(replaceFile(installation_.statusPath(), platform::writeXmlPropertyList(status)));
    }
    start();
  }

  // Processes start and exit, vorlatchctl edits, posts come in bursts, and the disk is full at
  // times. Ends undisturbed: all editors are through, and the disk has room.
  void runChaos(bool has_foreign_editors, bool kills_the_daemon) {
    const auto begin = Clock::now();
    const auto elapsed_ms = [begin] {
      return std::chrono::duration_cast<milliseconds>(Clock::now() - begin).count();
    };
    std::multimap<std::int64_t, std::function<void()>> events;  // by their times
    const auto sometimes = [&](int count, const std::function<void()>& event) {
      for (int i = 0; i < count; ++i) events.emplace(dice_.between(0, kChaosMs), event);
    };
    sometimes(kills_the_daemon ? dice_.between(1, 4) : 0, [this] { killAndStart(); });
    sometimes(2 * dice_.between(1, 2), [this] { changeDisk(!disk_is_full_); });
    std::int64_t busy_until_ms = 0;
    std::int64_t pause_until_ms = 0;
    bool is_burst = false;
    while (elapsed_ms() < kChaosMs) {
      if (elapsed_ms() >= pause_until_ms) {
        busy_until_ms = elapsed_ms() + dice_.between(50, kBurstMaxMs);
        pause_until_ms = busy_until_ms + dice_.between(kPauseMinMs, kPauseMaxMs);
        is_burst = dice_.oneIn(2);
      }
      if (elapsed_ms() < busy_until_ms) {
        editAtRandom(has_foreign_editors);
        if (is_burst) postAgain();
      }
      for (; !events.empty() && events.begin()->first <= elapsed_ms();
           events.erase(events.begin())) {
        events.begin()->second();
      }
      if (dice_.oneIn(4)) crowd_.stir();
      ASSERT_TRUE(installation_.isRunning()) << "the daemon died by itself";
      lookAtFiles();
      pauseFor(dice_.between(1, 8));
    }
    changeDisk(false);
    for (ControlEditor& editor : editors_) editor.finish();
    if (has_foreign_editors) {
      // What is in the file counts: each of them replaces all of it.
      for (ForeignEditor& foreigner : foreigners_) foreigner.finish();
      expected_ = dictionaryIn(installation_.preferencesPath());
    }
    expectPreferences();
    poster_.reset();
  }

  // One post after the other, as fast as vorlatchctl can.
  void postAgain() {
    if (poster_ != nullptr && !poster_->hasEnded()) return;
    EXPECT_TRUE(poster_ == nullptr || poster_->exitCode() == 0);
    poster_ = installation_.startControl({.arguments = {"apply"}});
  }

  // Those who are idle begin together, to meet at the file.
  void editAtRandom(bool has_foreign_editors) {
    const bool begin = dice_.oneIn(8);
    for (ControlEditor& editor : editors_) {
      if (editor.isBusy() || !begin) continue;
      if (!editor.keys().empty()) {
        editor.beginSome(dice_);
      } else if (dice_.oneIn(10)) {
        editor.beginSwitch(!dice_.oneIn(3));
      }
    }
    for (ForeignEditor& foreigner : foreigners_) {
      if (has_foreign_editors && dice_.oneIn(8)) foreigner.goOn(dice_);
    }
  }

  void changeDisk(bool to_full) {
    if (to_full == disk_is_full_) return;
    const std::string filler = installation_.preferencesDirectory() + "/filler";
    if (to_full) {
      fillUp(filler);
      ++full_disks_;
    } else {
      fs::remove(filler);
    }
    disk_is_full_ = to_full;
  }

  // In the status file that the daemon wrote last, no entry may be of an earlier daemon's time.
  void lookAtFiles() {
    std::error_code error;
    const auto size = static_cast<std::size_t>(fs::file_size(installation_.logPath(), error));
    if (size < log_size_) ++log_clearings_;
    log_size_ = size;

    const std::string bytes = tests::readAll(installation_.statusPath());
    if (bytes == status_before_start_) return;
    ++status_looks_;
    const auto list = platform::parsePropertyList(bytes);
    ASSERT_TRUE(list && list->as<Dictionary>() != nullptr) << bytes;
    for (const auto& [key, entry] : *list->as<Dictionary>()) {
      const auto* numbers = entry.as<Dictionary>();
      ASSERT_NE(numbers, nullptr) << bytes;
      const plist::Value* stored_pid = plist::find(*numbers, status_keys::kPid);
      ASSERT_NE(stored_pid, nullptr) << bytes;
      const std::int32_t pid = plist::int32Value(*stored_pid);
      EXPECT_TRUE(crowd_.ranSince(started_, key, pid)) << key << " " << pid << "\n" << bytes;
    }
  }

  void expectPreferences() {
    EXPECT_EQ(describe(dictionaryIn(installation_.preferencesPath())), describe(expected_));
  }

  // Edits every target once more, and expects that the daemon then holds what the preferences say.
  void expectCalm() {
    crowd_.fillUp();
    crowd_.endOneTarget();
    pauseFor(kRestoresMs);
    editAllTargets();
    installation_.post();
    expectHeld();
    expectTicks();
    expectHeld();
    const std::string log = tests::readAll(installation_.logPath());
    const std::size_t tail = log.size() > kLogTailBytes ? log.size() - kLogTailBytes : 0;
    EXPECT_EQ(brokenLines(log.substr(std::min(log.find('\n', tail) + 1, log.size()))), Lines{});
    ++calms_of_this_life_;
    last_use_ = useAtRest(installation_.daemon());
    if (!first_use_) first_use_ = last_use_;
  }

  // A pass skips a target that is as it was: each gets a remark that it never had.
  void editAllTargets() {
    ++remark_;
    const int refused_before = sumOf(&ControlEditor::refused);
    std::map<ControlEditor*, std::vector<std::string>> left;
    for (ControlEditor& editor : editors_) left[&editor] = editor.keys();
    editors_.back().beginSwitch(true);
    for (bool is_busy = true; is_busy;) {
      is_busy = false;
      for (auto& [editor, keys] : left) {
        if (!editor->isBusy() && !keys.empty()) {
          Dictionary settings = anySettings(dice_, true);
          settings.emplace(keys::kRemark, "calm " + std::to_string(remark_));
          editor->beginSet(keys.back(), settings);
          keys.pop_back();
        }
        is_busy = editor->isBusy() || !keys.empty() || is_busy;
      }
      pauseFor(1);
    }
    EXPECT_EQ(sumOf(&ControlEditor::refused), refused_before);
    expectPreferences();
  }

  // Who runs, with the settings that hold.
  std::map<std::string, std::pair<pid_t, TargetSettings>> heldTargets() {
    std::map<std::string, std::pair<pid_t, TargetSettings>> held;
    for (const auto& [key, value] : *plist::find(expected_, keys::kAppConfigs)->as<Dictionary>()) {
      if (std::ranges::count(crowd_.keys(), key) == 0) continue;
      const TargetSettings settings = readTargetSettings(*value.as<Dictionary>());
      const pid_t pid = crowd_.meant(key, settings.check_interval_s > 0);
      if (pid != 0) held.emplace(key, std::pair(pid, settings));
    }
    return held;
  }

  void expectHeld() {
    Dictionary status;
    for (const auto& [key, held] : heldTargets()) {
      const auto& [pid, settings] = held;
      status.emplace(key, statusEntry(pid, settings.nice_value, settings.jetsam_priority));
    }
    ASSERT_EQ(once(describe(status), [&] { return installation_.status(); }), describe(status));
    for (const auto& [key, held] : heldTargets()) {
      const pid_t pid = held.first;
      EXPECT_EQ(niceOf(pid), held.second.nice_value) << key << " " << pid;
      const std::string wanted = kernelStateFor(held.second);
      EXPECT_EQ(once(wanted, [&] { return kernelStateOf(pid); }), wanted) << key;
    }
  }

  [[nodiscard]] std::string kernelStateOf(pid_t pid) const {
    platform::JetsamStateFile kernel(installation_.path("var/run/vorlatch/jetsam.state"));
    std::string state = "none";
    kernel.look([&](const model::JetsamTable& table) {
      const auto record = table.records.find(pid);
      if (record != table.records.end()) state = textOf(record->second);
    });
    return state;
  }

  // Somebody else changes the nice value of every target that has a watch timer.
  void expectTicks() {
    std::map<pid_t, int> wanted;
    for (const auto& [key, held] : heldTargets()) {
      if (held.second.check_interval_s == 0) continue;
      wanted[held.first] = held.second.nice_value;
      setNice(held.first, held.second.nice_value == 0 ? 1 : 0);
    }
    for (const auto& [pid, nice] : wanted) {
      EXPECT_EQ(once(nice, [pid = pid] { return niceOf(pid); }), nice) << pid;
    }
  }

  // What has to hold of the whole time.
  void expectNothingLeftBehind() {
    onlooker_.stop();
    EXPECT_EQ(onlooker_.findings(), Lines{});
    // A daemon that is killed while it writes leaves its temporary file; nothing else stays.
    int left_behind = 0;
    for (const std::string& name : filesIn(installation_.preferencesDirectory())) {
      if (name.starts_with(std::string(kStatusFileName) + ".")) {
        ++left_behind;
      } else {
        EXPECT_TRUE(name == kPreferencesFileName || name == kStatusFileName ||
                    name == "Vorlatch.log")
            << name;
      }
    }
    EXPECT_LE(left_behind, kills_);
  }

  // Chaos without one of these is none.
  void expectChaos() {
    EXPECT_GT(kills_, 0);
    EXPECT_GT(full_disks_, 0);
    EXPECT_GT(log_clearings_, 0);
    EXPECT_GT(status_looks_, 0);
    EXPECT_GT(onlooker_.looks(), 0);
    EXPECT_GT(sumOf(&ControlEditor::done), 0);
    for (const ForeignEditor& foreigner : foreigners_) EXPECT_GT(foreigner.replacements(), 0);
    RecordProperty("kills", kills_);
    RecordProperty("edits", sumOf(&ControlEditor::done));
    RecordProperty("rest periods", remark_);
  }

  int sumOf(int (ControlEditor::*figure)() const) {
    return std::accumulate(editors_.begin(), editors_.end(), 0,
                           [&](int sum, const auto& editor) { return sum + (editor.*figure)(); });
  }

  int calms_of_this_life_ = 0;
  std::optional<ResourceUse> first_use_;
  ResourceUse last_use_{};

 private:
  const bool is_apart_ = (leaveTheMachinesMounts(), true);
  tests::Dice dice_{tests::runOptions().seed};
  Installation installation_;
  const MemoryFileSystem disk_{installation_.preferencesDirectory(), "size=1m"};
  Crowd crowd_{installation_.path(""), dice_};
  // The preferences as vorlatchctl's edits have to leave them.
  Dictionary expected_{
      {keys::kEnabled, true}, {keys::kLogSizeLimit, 50'000}, {keys::kAppConfigs, Dictionary{}}};
  std::vector<ControlEditor> editors_;
  std::vector<ForeignEditor> foreigners_;
  Onlooker onlooker_{installation_.preferencesDirectory(), {kPreferencesFileName, kStatusFileName}};
  std::unique_ptr<ChildProcess> poster_;
  Clock::time_point started_;
  std::string status_before_start_;
  bool disk_is_full_ = false;
  std::size_t log_size_ = 0;
  int remark_ = 0;
  int kills_ = 0;
  int full_disks_ = 0;
  int log_clearings_ = 0;
  int status_looks_ = 0;
};

TEST_F(PrivilegedRealChaos, EndsInCalm) {
  const auto begin = Clock::now();
  const auto duration = tests::runOptions().duration;
  bool has_foreign_editors = true;
  while ((Clock::now() < begin + duration || calms_of_this_life_ < 2) && !HasFailure()) {
    runChaos(has_foreign_editors, Clock::now() < begin + duration / 3);
    if (HasFailure()) break;
    expectCalm();
    has_foreign_editors = !has_foreign_editors;
  }
  expectNothingLeftBehind();
  expectChaos();
  if (!HasFailure()) expectNoMore(last_use_, *first_use_, kGrowthMaxKb);
}

}  // namespace
}  // namespace vorlatch
