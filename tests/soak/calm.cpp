// What has to hold once the chaos is over.
#include <poll.h>

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "config/preferences.h"
#include "config/status_file.h"
#include "platform/linux/jetsam_state_file.h"
#include "tests/soak/chaos.h"
#include "tests/soak/log_forms.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

using plist::Dictionary;

// Longer than restores take that an earlier pass has handed to the other queue: one that meets the
// next pass may come after it, by design.
constexpr int kRestoresMs = 500;
constexpr int kBetweenLooksMs = 10;
constexpr std::size_t kLogTailBytes = 4000;
constexpr std::int64_t kGrowthMaxKb = 256;

// The kernel's side of a process, as far as settings decide it.
std::string textOf(const model::JetsamRecord& record) {
  return "band " + std::to_string(record.effective_band) + ", limits " +
         std::to_string(record.active.limit_mb) + " and " +
         std::to_string(record.inactive.limit_mb) + (record.managed ? ", managed" : "") +
         (record.freezable ? ", freezable" : "") + (record.elevated ? ", elevated" : "");
}

model::JetsamRecord recordFor(const TargetSettings& settings) {
  const auto limit = [](std::int32_t limit_mb) {
    return model::MemoryLimit{.limit_mb = limit_mb > 0 ? limit_mb : -1};
  };
  const bool is_stripped = settings.strips_managed.value_or(false);
  model::JetsamRecord record;
  record.effective_band = settings.jetsam_priority;
  record.active = limit(settings.active_limit_mb);
  record.inactive = limit(settings.inactive_limit_mb);
  record.managed = !is_stripped;
  record.freezable = !is_stripped;
  record.elevated = is_stripped;
  return record;
}

// What is looked at, once it is as expected or will not be: a tick that is under way sets a
// target's values one after the other.
template <typename Seen, typename Look>
Seen once(const Seen& expected, const Look& look) {
  const auto deadline = Clock::now() + kPatience;
  Seen seen = look();
  while (seen != expected && Clock::now() < deadline) {
    poll(nullptr, 0, kBetweenLooksMs);
    seen = look();
  }
  return seen;
}

// A tick that is under way has a file or two open for a moment.
ResourceUse useAtRest(pid_t pid) {
  constexpr int kLooks = 20;
  ResourceUse least = resourceUseOf(pid);
  for (int i = 1; i < kLooks; ++i) {
    poll(nullptr, 0, kBetweenLooksMs);
    ResourceUse use = resourceUseOf(pid);
    if (use.open_files.size() < least.open_files.size()) least = std::move(use);
  }
  return least;
}

}  // namespace

void Chaos::expectCalm() {
  crowd_.fillUp();
  crowd_.endOneTarget();
  poll(nullptr, 0, kRestoresMs);
  editAllTargets();
  installation_.post();
  expectHeld();
  expectTicks();
  expectHeld();
  const std::string log = tests::readAll(installation_.logPath());
  const std::size_t tail = log.size() > kLogTailBytes ? log.size() - kLogTailBytes : 0;
  EXPECT_EQ(brokenLines(log.substr(std::min(log.find('\n', tail) + 1, log.size()))), Lines{});
  ++calms_;
  ++calms_of_this_life_;
  last_use_ = useAtRest(installation_.daemon());
  if (!first_use_) first_use_ = last_use_;
}

// A pass skips a target that is as it was: each gets a remark that it never had.
void Chaos::editAllTargets() {
  ++remark_;
  const int refused_before = refusedEdits();
  std::map<ControlEditor*, std::vector<std::string>> left;
  for (ControlEditor& editor : editors_) left[&editor] = editor.keys();
  editors_.back().begin(switchEdit(true));
  for (bool is_busy = true; is_busy;) {
    is_busy = false;
    for (auto& [editor, keys] : left) {
      if (!editor->isBusy() && !keys.empty()) {
        editor->begin(wholeEdit(dice_, keys.back(), remark_));
        keys.pop_back();
      }
      is_busy = editor->isBusy() || !keys.empty() || is_busy;
    }
    poll(nullptr, 0, 1);
  }
  EXPECT_EQ(refusedEdits(), refused_before);
  EXPECT_EQ(vorlatch::textOf(dictionaryIn(installation_.preferencesPath())),
            vorlatch::textOf(expected_));
}

TargetSettings Chaos::settingsOf(const std::string& key) const {
  const auto* targets = plist::find(expected_, keys::kAppConfigs)->as<Dictionary>();
  return readTargetSettings(*plist::find(*targets, key)->as<Dictionary>());
}

pid_t Chaos::heldProcess(const std::string& key) const {
  return crowd_.meant(key, settingsOf(key).check_interval_s > 0);
}

void Chaos::expectHeld() {
  Dictionary status;
  for (const std::string& key : crowd_.keys()) {
    const pid_t pid = heldProcess(key);
    if (pid == 0) continue;
    const TargetSettings settings = settingsOf(key);
    status.insert_or_assign(key,
                            Dictionary{{status_keys::kPid, pid},
                                       {status_keys::kNiceValue, settings.nice_value},
                                       {status_keys::kJetsamPriority, settings.jetsam_priority}});
  }
  const std::string expected = vorlatch::textOf(status);
  ASSERT_EQ(once(expected, [&] { return installation_.status(); }), expected);

  for (const auto& [key, entry] : status) {
    const pid_t pid = heldProcess(key);
    EXPECT_EQ(niceOf(pid), settingsOf(key).nice_value) << key << " " << pid;
    const std::string wanted = textOf(recordFor(settingsOf(key)));
    EXPECT_EQ(once(wanted, [&, pid = pid] { return kernelStateOf(pid); }), wanted) << key;
  }
}

std::string Chaos::kernelStateOf(pid_t pid) const {
  platform::JetsamStateFile kernel(installation_.path("var/run/vorlatch/jetsam.state"));
  std::string state = "none";
  kernel.look([&](const model::JetsamTable& table) {
    const auto record = table.records.find(pid);
    if (record != table.records.end()) state = textOf(record->second);
  });
  return state;
}

// Somebody else changes the nice value of every target that has a watch timer.
void Chaos::expectTicks() {
  std::map<pid_t, int> wanted;
  for (const std::string& key : crowd_.keys()) {
    const pid_t pid = heldProcess(key);
    if (pid == 0 || settingsOf(key).check_interval_s == 0) continue;
    wanted[pid] = settingsOf(key).nice_value;
    setNice(pid, wanted[pid] == 0 ? 1 : 0);
  }
  for (const auto& [pid, nice] : wanted) {
    EXPECT_EQ(once(nice, [pid = pid] { return niceOf(pid); }), nice) << pid;
  }
}

void Chaos::expectNoGrowth() {
  ASSERT_TRUE(first_use_);
  expectNoMore(last_use_, *first_use_, kGrowthMaxKb);
}

}  // namespace vorlatch
