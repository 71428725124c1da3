#include "tests/soak/chaos.h"

#include <poll.h>

#include <algorithm>
#include <filesystem>
#include <iterator>
#include <numeric>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "config/status_file.h"
#include "platform/property_list.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

namespace fs = std::filesystem;
using plist::Dictionary;
using std::chrono::milliseconds;

constexpr int kEditors = 4;
constexpr const char* kDiskSize = "size=1m";
constexpr int kLogSizeLimitBytes = 50'000;
// A burst of posts holds off every pass; a pause lets one come.
constexpr int kBurstMaxMs = 1000;
constexpr int kPauseMinMs = 160;
constexpr int kPauseMaxMs = 450;

// The chaos goes on at a pace of its own: there is nothing to wait for.
void pauseFor(int duration_ms) {
  poll(nullptr, 0, duration_ms);
}

Dictionary firstPreferences() {
  return {{keys::kEnabled, true},
          {keys::kLogSizeLimit, kLogSizeLimitBytes},
          {keys::kAppConfigs, Dictionary{}}};
}

// Every kEditors-th target belongs to the same editor; the last editor has the switch alone.
std::vector<ControlEditor> makeEditors(const Installation& installation,
                                       const std::vector<std::string>& keys, Dictionary& expected) {
  std::vector<ControlEditor> editors;
  for (int i = 0; i < kEditors; ++i) {
    std::vector<std::string> own;
    for (auto k = static_cast<std::size_t>(i); k < keys.size(); k += kEditors) {
      own.push_back(keys[k]);
    }
    editors.emplace_back(installation, std::move(own), expected);
  }
  editors.emplace_back(installation, std::vector<std::string>{}, expected);
  return editors;
}

std::vector<ForeignEditor> makeForeigners(const Installation& installation,
                                          const std::vector<std::string>& keys) {
  std::vector<ForeignEditor> foreigners;
  foreigners.emplace_back(installation, ForeignEditor::Form::Xml, keys);
  foreigners.emplace_back(installation, ForeignEditor::Form::Binary, keys);
  return foreigners;
}

int sumOf(const std::vector<ControlEditor>& editors, int (ControlEditor::*figure)() const) {
  return std::accumulate(
      editors.begin(), editors.end(), 0,
      [&](int so_far, const ControlEditor& editor) { return so_far + (editor.*figure)(); });
}

void installPoster(const Installation& installation) {
  fs::copy_file(VORLATCH_POSTER, installation.path("usr/bin/poster"));
}

}  // namespace

Chaos::Chaos(std::uint64_t seed)
    : dice_(seed),
      disk_(installation_.preferencesDirectory(), kDiskSize),
      crowd_(installation_, dice_),
      expected_(firstPreferences()),
      editors_(makeEditors(installation_, crowd_.keys(), expected_)),
      foreigners_(makeForeigners(installation_, crowd_.keys())),
      onlooker_(installation_.preferencesDirectory(), {kPreferencesFileName, kStatusFileName}) {
  installPoster(installation_);
  writeOldLog();
  EXPECT_TRUE(
      replaceFile(installation_.preferencesPath(), platform::writeXmlPropertyList(expected_)));
  start();
}

// Larger than every limit that an editor sets: however short the chaos is, a log is emptied in it.
void Chaos::writeOldLog() {
  constexpr int kLines = 2000;
  std::string log;
  for (int i = 0; i < kLines; ++i) log += "[01-01 00:00:00] " + std::string(40, '-') + "\n";
  tests::writeAll(installation_.logPath(), log);
  log_size_ = log.size();
}

void Chaos::start() {
  started_ = Clock::now();
  status_before_start_ = tests::readAll(installation_.statusPath());
  installation_.startWithoutWaiting();
  installation_.waitUntilPostsAreHeard();
  calms_of_this_life_ = 0;
  first_use_.reset();
}

// What the status file then holds is of no process any more, as far as the dead daemon's targets
// go, and names one that nobody ever configured.
void Chaos::killAndStart() {
  installation_.stop();
  ++kills_;
  crowd_.endOneTarget();
  if (!disk_is_full_) {
    Dictionary status = dictionaryIn(installation_.statusPath());
    status.insert_or_assign(ownName("ghost"), Dictionary{{status_keys::kPid, 1},
                                                         {status_keys::kNiceValue, 0},
                                                         {status_keys::kJetsamPriority, 0}});
    EXPECT_TRUE(replaceFile(installation_.statusPath(), platform::writeXmlPropertyList(status)));
  }
  start();
}

void Chaos::rage(const Round& round) {
  const auto begin = Clock::now();
  const auto end = begin + round.duration;
  Times kills = someTimes(begin, end, round.kills_the_daemon ? dice_.between(1, 4) : 0);
  Times disk_changes = someTimes(begin, end, 2 * dice_.between(1, 2));
  auto busy_until = begin;
  auto pause_until = begin;
  const auto is_due = [](Times& times) {
    if (times.empty() || Clock::now() < times.back()) return false;
    times.pop_back();
    return true;
  };
  while (Clock::now() < end) {
    if (Clock::now() >= pause_until) {
      const milliseconds busy(dice_.between(50, kBurstMaxMs));
      busy_until = Clock::now() + busy;
      pause_until = busy_until + milliseconds(dice_.between(kPauseMinMs, kPauseMaxMs));
      if (dice_.oneIn(2)) burst(busy);
    }
    if (Clock::now() < busy_until) editAtRandom(round);
    if (is_due(disk_changes)) changeDisk(!disk_is_full_);
    if (is_due(kills)) killAndStart();
    if (dice_.oneIn(4)) crowd_.stir();
    ASSERT_TRUE(installation_.isRunning()) << "the daemon died by itself";
    lookAtStatus();
    lookAtLog();
    pauseFor(dice_.between(1, 8));
  }
  changeDisk(false);
  finishEditors(round);
}

// The latest first.
Chaos::Times Chaos::someTimes(Clock::time_point begin, Clock::time_point end, int count) {
  const auto length = std::chrono::duration_cast<milliseconds>(end - begin).count();
  Times times;
  for (int i = 0; i < count; ++i) {
    times.push_back(begin + milliseconds(dice_.between(0, static_cast<int>(length))));
  }
  std::sort(times.rbegin(), times.rend());
  return times;
}

void Chaos::burst(milliseconds duration) {
  finishBurst();
  const int count = static_cast<int>(duration.count());
  Launch launch;
  launch.arguments = {std::to_string(count)};
  poster_ = std::make_unique<ChildProcess>(installation_.path("usr/bin/poster"), launch);
  posts_ += count;
}

void Chaos::finishBurst() {
  if (poster_ == nullptr) return;
  EXPECT_EQ(poster_->exitCode(), 0);
  poster_.reset();
}

// Those who are idle begin together, to meet at the file.
void Chaos::editAtRandom(const Round& round) {
  const bool begin = dice_.oneIn(8);
  for (ControlEditor& editor : editors_) {
    if (editor.isBusy() || !begin) continue;
    if (!editor.keys().empty()) {
      editor.beginSome(dice_);
    } else if (dice_.oneIn(10)) {
      editor.begin(switchEdit(!dice_.oneIn(3)));
    }
  }
  if (!round.has_foreign_editors) return;
  for (ForeignEditor& foreigner : foreigners_) {
    if (dice_.oneIn(8)) foreigner.goOn(dice_);
  }
}

void Chaos::changeDisk(bool to_full) {
  if (to_full == disk_is_full_) return;
  if (to_full) {
    fillUp(fillerPath());
    ++full_disks_;
  } else {
    fs::remove(fillerPath());
  }
  disk_is_full_ = to_full;
}

// With foreign editors about, what is in the file counts: each replaces all of it.
void Chaos::finishEditors(const Round& round) {
  for (ControlEditor& editor : editors_) editor.finish();
  if (round.has_foreign_editors) {
    for (ForeignEditor& foreigner : foreigners_) foreigner.finish();
    expected_ = dictionaryIn(installation_.preferencesPath());
  }
  EXPECT_EQ(textOf(dictionaryIn(installation_.preferencesPath())), textOf(expected_));
  finishBurst();
}

void Chaos::lookAtStatus() {
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

void Chaos::lookAtLog() {
  std::error_code error;
  const auto size = static_cast<std::size_t>(fs::file_size(installation_.logPath(), error));
  if (size < log_size_) ++log_clearings_;
  log_size_ = size;
}

void Chaos::finish() {
  onlooker_.stop();
  EXPECT_EQ(onlooker_.findings(), Lines{});
  // A daemon that is killed while it writes leaves its temporary file; nothing else stays.
  int left_behind = 0;
  for (const std::string& name : filesIn(installation_.preferencesDirectory())) {
    if (name.starts_with(std::string(kStatusFileName) + ".")) {
      ++left_behind;
    } else {
      EXPECT_TRUE(name == kPreferencesFileName || name == kStatusFileName || name == "Vorlatch.log")
          << name;
    }
  }
  EXPECT_LE(left_behind, kills_);
  // Chaos without one of these is none.
  EXPECT_GT(kills_, 0);
  EXPECT_GT(full_disks_, 0);
  EXPECT_GT(log_clearings_, 0);
  EXPECT_GT(status_looks_, 0);
  EXPECT_GT(onlooker_.looks(), 0);
  EXPECT_GT(sumOf(editors_, &ControlEditor::done), 0);
  for (const ForeignEditor& foreigner : foreigners_) EXPECT_GT(foreigner.replacements(), 0);
}

std::string Chaos::fillerPath() const {
  return installation_.preferencesDirectory() + "/filler";
}

int Chaos::refusedEdits() const {
  return sumOf(editors_, &ControlEditor::refused);
}

std::vector<std::pair<std::string, std::string>> Chaos::figures() const {
  const auto memory = [](const ResourceUse& use) {
    return "heap, stacks and data " + std::to_string(use.anonymous_kb) + " kB, PSS " +
           std::to_string(use.pss_kb) + " kB, " + std::to_string(use.threads) + " threads, " +
           std::to_string(use.open_files.size()) + " open files";
  };
  const auto count = [](int number) { return std::to_string(number); };
  return {{"processes started", count(crowd_.starts())},
          {"processes ended", count(crowd_.exits())},
          {"edits by vorlatchctl", count(sumOf(editors_, &ControlEditor::done))},
          {"edits refused for a full disk or a foreign edit", count(refusedEdits())},
          {"files replaced by foreign programs as XML", count(foreigners_[0].replacements())},
          {"files replaced by foreign programs as binary", count(foreigners_[1].replacements())},
          {"posts in bursts", count(posts_)},
          {"daemons killed", count(kills_)},
          {"log clearings seen", count(log_clearings_)},
          {"times the disk was full", count(full_disks_)},
          {"looks at the status file's truth", count(status_looks_)},
          {"looks at whole files", count(onlooker_.looks())},
          {"calms", count(calms_)},
          {"the last daemon's first calm", first_use_ ? memory(*first_use_) : "-"},
          {"its last calm", memory(last_use_)}};
}

}  // namespace vorlatch
