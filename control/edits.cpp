#include "control/edits.h"

#include <cstdint>
#include <limits>
#include <set>
#include <utility>

#include "base/utf8.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "control/failure.h"
#include "control/guards.h"
#include "control/nearest.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"
#include "control/translation.h"
#include "platform/notifications.h"

namespace vorlatch::control {
namespace {

using plist::Dictionary;
using plist::Value;

constexpr std::int64_t kBandLeftAlone = -1;

// Appends the differences between two dictionaries at the path `above`; see differencesBetween.
void collect(const Dictionary& before, const Dictionary& after,
             const std::vector<std::string>& above, std::vector<Difference>& differences) {
  static const Dictionary nothing;
  std::vector<std::string> keys;
  for (const auto& [key, value] : before) keys.push_back(key);
  for (const auto& [key, value] : after) {
    if (!before.contains(key)) keys.push_back(key);
  }
  for (const std::string& key : keys) {
    std::vector<std::string> path = above;
    path.push_back(key);
    const Value* old_value = plist::find(before, key);
    const Value* new_value = plist::find(after, key);
    const auto* old_entries = old_value != nullptr ? old_value->as<Dictionary>() : nullptr;
    const auto* new_entries = new_value != nullptr ? new_value->as<Dictionary>() : nullptr;
    const bool both_by_entries = (old_entries != nullptr || old_value == nullptr) &&
                                 (new_entries != nullptr || new_value == nullptr);
    const std::size_t count = differences.size();
    if (both_by_entries) {
      collect(old_entries != nullptr ? *old_entries : nothing,
              new_entries != nullptr ? *new_entries : nothing, path, differences);
    }
    const bool came_or_went = (old_value == nullptr) != (new_value == nullptr);
    const bool changed =
        old_value != nullptr && new_value != nullptr && !isIdentical(*old_value, *new_value);
    if ((both_by_entries && came_or_went && differences.size() == count) ||
        (!both_by_entries && (came_or_went || changed))) {
      differences.push_back({std::move(path), old_value, new_value});
    }
  }
}

// Returns the dictionary under the key, and creates it if missing. Throws a Failure if the key has
// a value of another type.
Dictionary& dictionaryUnder(Dictionary& parent, const std::string& key) {
  auto entry = parent.find(key);
  if (entry == parent.end()) entry = parent.emplace(key, Dictionary{}).first;
  auto* dictionary = entry->second.as<Dictionary>();
  if (dictionary == nullptr) {
    failCouldNot(
        tr("%s is %s and no dictionary; vorlatchctl check says more, and nothing is changed", key,
           kindText(entry->second)));
  }
  return *dictionary;
}

Dictionary& targetsOf(Dictionary& preferences) {
  return dictionaryUnder(preferences, keys::kAppConfigs);
}

std::vector<std::string> keysOf(const Dictionary& dictionary) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : dictionary) keys.push_back(key);
  return keys;
}

const SettingKey& rowOf(std::string_view key) {
  const SettingKey* row = findSettingKey(key);
  if (row == nullptr) {
    failWrongUsage(tr("there is no key %s", key) + suggestion(key, settingKeyNames()));
  }
  return *row;
}

}  // namespace

void failUnknownTarget(const std::vector<std::string>& known, const std::string& target) {
  failWrongUsage(tr("no target %s is configured", target) + suggestion(target, known));
}

Change setSettings(const std::string& target, const std::vector<std::string>& assignments) {
  refuseImpossibleTarget(target);
  Dictionary settings;
  for (const std::string& assignment : assignments) {
    const auto [key, value] = splitAssignment(assignment);
    const SettingKey& row = rowOf(key);
    settings.insert_or_assign(row.key, parseSetting(row, value));
  }
  return [target, settings = std::move(settings)](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    const bool is_new = !targets.contains(target);
    Dictionary& stored = dictionaryUnder(targets, target);
    // A missing band counts as 0, which takes a process from where the system has it to the bottom.
    if (is_new && !settings.contains(keys::kJetsamPriority)) {
      stored.emplace(keys::kJetsamPriority, kBandLeftAlone);
    }
    for (const auto& [key, value] : settings) {
      const Value* old_value = plist::find(stored, key);
      if (old_value == nullptr || !isIdentical(*old_value, value)) {
        stored.insert_or_assign(key, value);
      }
    }
  };
}

Change unsetSettings(const std::string& target, const std::vector<std::string>& keys) {
  return [target, keys](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    if (!targets.contains(target)) failUnknownTarget(keysOf(targets), target);
    Dictionary& settings = dictionaryUnder(targets, target);
    for (const std::string& key : keys) {
      // A key that the daemon does not know may be removed if the file contains it.
      if (settings.erase(key) == 0) rowOf(key);
    }
  };
}

Change removeTargets(const std::vector<std::string>& targets) {
  return [targets](Dictionary& preferences) {
    Dictionary& configured = targetsOf(preferences);
    for (const std::string& target : targets) {
      if (!configured.contains(target)) failUnknownTarget(keysOf(configured), target);
    }
    for (const std::string& target : targets) configured.erase(target);
  };
}

Change applyAgain(const std::vector<std::string>& targets) {
  return [names = std::set<std::string>(targets.begin(), targets.end())](Dictionary& preferences) {
    Dictionary& configured = targetsOf(preferences);
    for (const std::string& target : names) {
      if (!configured.contains(target)) failUnknownTarget(keysOf(configured), target);
      Dictionary& settings = dictionaryUnder(configured, target);
      const Value* stored = plist::find(settings, keys::kApplyAgain);
      const std::int64_t count = stored != nullptr ? plist::int64Value(*stored) : 0;
      const bool is_last = count == std::numeric_limits<std::int64_t>::max();
      settings.insert_or_assign(keys::kApplyAgain, is_last ? 1 : count + 1);
    }
  };
}

Change switchDaemon(bool on) {
  return [on](Dictionary& preferences) { preferences.insert_or_assign(keys::kEnabled, on); };
}

Change addPreset(bool replaces_targets) {
  return [replaces_targets](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    for (const auto& [key, settings] : appConfigs(defaultPreset())) {
      if (replaces_targets) {
        targets.insert_or_assign(key, settings);
      } else {
        targets.try_emplace(key, settings);
      }
    }
  };
}

std::vector<Difference> differencesBetween(const Dictionary& before, const Dictionary& after) {
  std::vector<Difference> differences;
  collect(before, after, {}, differences);
  return differences;
}

void postApply() {
  if (!platform::postNotification(kApplyNotificationName)) {
    failCouldNot(tr("the notification could not be posted; what was to be written is written"));
  }
}

}  // namespace vorlatch::control
