// The installed daemon amid everything that other programs, processes and the disk can do to it at
// once. Chaos and calm take turns for as long as the test is told to run: in the first third of the
// time daemons are killed, the last one lives through the rest.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
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

// Mounts a small disk there, for this process alone. Needs root with the right to mount.
std::string withDisk(const std::string& directory) {
  EXPECT_TRUE(unshare(CLONE_NEWNS) == 0 &&
              mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
              mount("tmpfs", directory.c_str(), "tmpfs", 0, "size=1m") == 0)
      << std::strerror(errno);
  return directory;
}

class PrivilegedRealChaos : public testing::Test {
 protected:
  // Starts the daemon and all processes.
  PrivilegedRealChaos() {
    // Every kEditors-th target belongs to the same editor; the last editor has the switch alone.
    std::vector<std::vector<std::string>> targets(kEditors + 1);
    for (std::size_t i = 0; i < crowd_.keys().size(); ++i) {
      targets[i % kEditors].push_back(crowd_.keys()[i]);
    }
    for (auto& own : targets) editors_.emplace_back(installation_, std::move(own), expected_);
    // Larger than the limit: however short the chaos is, a log is emptied in it.
    std::string log;
    while (log.size() < 110'000) log += "[01-01 00:00:00] " + std::string(40, '-') + "\n";
    tests::writeAll(installation_.logPath(), log);
    log_size_ = log.size();
    EXPECT_TRUE(
        replaceFile(installation_.preferencesPath(), platform::writeXmlPropertyList(expected_)));
    start();
  }
  ~PrivilegedRealChaos() override { umount2(directory_.c_str(), MNT_DETACH); }

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
    if (poster_ != nullptr) {
      const Output said = poster_->output();
      // It posts, and then may find that the daemon was killed just now.
      EXPECT_TRUE(said.status == 0 || said.err.find("the daemon does not run") != said.err.npos)
          << said.err;
    }
    poster_ = installation_.startControl({.arguments = {"apply"}});
  }

  // Those who are idle begin together, to meet at the file.
  void editAtRandom(bool has_foreign_editors) {
    const bool begin = dice_.oneIn(8);
    for (ControlEditor& editor : editors_) {
      if (editor.isBusy() || !begin) continue;
      if (!editor.targets.empty()) {
        editor.beginSome(dice_);
      } else if (dice_.oneIn(10)) {
        editor.beginSwitch(!dice_.oneIn(3));
      }
    }
    for (ForeignEditor& foreigner : foreigners_) {
      if (has_foreign_editors && dice_.oneIn(8)) foreigner.goOn(dice_, dice_.of(crowd_.keys()));
    }
  }

  void changeDisk(bool to_full) {
    disk_is_full_ = to_full;
    const std::string filler = directory_ + "/filler";
    fs::remove(filler);
    if (!to_full) return;
    const Descriptor file(open(filler.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644));
    const std::string block(1024, 'x');
    while (write(file.get(), block.data(), block.size()) > 0) {
    }
    EXPECT_EQ(errno, ENOSPC);
  }

  // Whoever reads the two lists finds them whole. A reader rarely comes at the moment at which a
  // file is half written; the kernel tells of each write. In the status file that the daemon wrote
  // last, no entry may be of an earlier daemon's time.
  void lookAtFiles() {
    takeEvents(writes_, [](std::uint32_t mask, const std::string& name) {
      EXPECT_EQ(mask & IN_Q_OVERFLOW, 0U) << "events were lost";
      EXPECT_TRUE(name != kPreferencesFileName && name != kStatusFileName) << name;
    });
    const std::string log = tests::readAll(installation_.logPath());
    is_log_cleared_ |= log.size() < log_size_;
    log_size_ = log.size();

    EXPECT_NE(dictionaryIn(installation_.preferencesPath()), Dictionary{});
    const std::string bytes = tests::readAll(installation_.statusPath());
    if (bytes == status_before_start_) return;
    const auto list = platform::parsePropertyList(bytes);
    ASSERT_TRUE(list && list->as<Dictionary>() != nullptr) << bytes;
    for (const auto& [key, entry] : *list->as<Dictionary>()) {
      const auto* numbers = entry.as<Dictionary>();
      ASSERT_TRUE(numbers != nullptr && numbers->contains(status_keys::kPid)) << bytes;
      const std::int32_t pid = plist::int32Value(numbers->at(status_keys::kPid));
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
    lookAtFiles();
    ++calms_of_this_life_;
    last_use_ = useAtRest(installation_.daemon());
    if (!first_use_) first_use_ = last_use_;
  }

  // A pass skips a target that is as it was: each gets a remark that it never had.
  void editAllTargets() {
    ++remark_;
    const int refused_before = sumOf(&ControlEditor::refused);
    editors_.back().beginSwitch(true);
    for (const std::string& key : crowd_.keys()) {
      ControlEditor& editor = *std::ranges::find_if(
          editors_, [&](const auto& each) { return std::ranges::count(each.targets, key) > 0; });
      editor.finish();
      Dictionary settings = anySettings(dice_);
      settings.emplace(keys::kRemark, "calm " + std::to_string(remark_));
      editor.beginSet(key, settings);
    }
    for (ControlEditor& editor : editors_) editor.finish();
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

  // A daemon that is killed while it writes leaves its temporary file, and edits leave the last ten
  // files that they replaced; nothing else stays.
  void expectNothingLeftBehind() {
    int left_behind = 0;
    int replaced = 0;
    for (const std::string& name : filesIn(directory_)) {
      if (name.starts_with(std::string(kStatusFileName) + ".")) {
        ++left_behind;
      } else if (name.starts_with(std::string(kPreferencesFileName) + ".undo.")) {
        ++replaced;
      } else {
        EXPECT_TRUE(name == kPreferencesFileName || name == kStatusFileName ||
                    name == "Vorlatch.log")
            << name;
      }
    }
    EXPECT_LE(left_behind, kills_);
    EXPECT_LE(replaced, 10);
  }

  // Chaos without one of these is none.
  void expectChaos() {
    EXPECT_GT(kills_, 0);
    EXPECT_TRUE(is_log_cleared_);
    EXPECT_GT(sumOf(&ControlEditor::done), 0);
    RecordProperty("kills", kills_);
    RecordProperty("edits", sumOf(&ControlEditor::done));
    RecordProperty("rest periods", remark_);
  }

  int sumOf(int ControlEditor::*figure) {
    return std::accumulate(editors_.begin(), editors_.end(), 0,
                           [&](int sum, const auto& editor) { return sum + editor.*figure; });
  }

  int calms_of_this_life_ = 0;
  std::optional<ResourceUse> first_use_;
  ResourceUse last_use_{};

 private:
  tests::Dice dice_{tests::runOptions().seed};
  Installation installation_;
  const std::string directory_ = withDisk(installation_.preferencesDirectory());
  const Descriptor writes_ = watchDirectory(directory_, IN_MODIFY);
  Crowd crowd_{installation_.path(""), dice_};
  // The preferences as vorlatchctl's edits have to leave them.
  Dictionary expected_{
      {keys::kEnabled, true}, {keys::kLogSizeLimit, 50'000}, {keys::kAppConfigs, Dictionary{}}};
  std::vector<ControlEditor> editors_;
  std::array<ForeignEditor, 2> foreigners_{ForeignEditor(installation_, false),
                                           ForeignEditor(installation_, true)};
  std::unique_ptr<ChildProcess> poster_;
  Clock::time_point started_;
  std::string status_before_start_;
  bool disk_is_full_ = false;
  std::size_t log_size_ = 0;
  int remark_ = 0;
  int kills_ = 0;
  bool is_log_cleared_ = false;
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
