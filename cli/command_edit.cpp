// vorlatchctl set, unset, remove, enable, disable, preset and apply
#include <algorithm>
#include <functional>
#include <utility>

#include "base/utf8.h"
#include "cli/commands.h"
#include "cli/nearest.h"
#include "cli/observation.h"
#include "cli/preferences_edit.h"
#include "cli/settings_schema.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "platform/notifications.h"

namespace vorlatch::cli {
namespace {

using plist::Dictionary;
using plist::Value;

struct Difference {
  std::vector<std::string> path;
  const Value* before;  // null: absent
  const Value* after;
};

// The places at which the two differ; a dictionary that is new or gone counts by its entries.
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

std::string textOf(const Value* value) {
  return value != nullptr ? settingText(*value) : "(none)";
}

std::string pathText(const std::vector<std::string>& path) {
  std::string text;
  for (const std::string& key : path) text += (text.empty() ? "" : " / ") + key;
  return text;
}

void report(const Session& session, const EditOptions& options, const Edit& edit, bool posted) {
  std::vector<Difference> differences;
  collect(edit.before, edit.after, {}, differences);
  if (session.wants_json) {
    Json changes = Json::array();
    for (const Difference& each : differences) {
      changes.push_back({{"path", each.path},
                         {"before", each.before != nullptr ? jsonOf(*each.before) : Json()},
                         {"after", each.after != nullptr ? jsonOf(*each.after) : Json()}});
    }
    print(session, {{"changes", changes},
                    {"written", !options.is_dry_run && !differences.empty()},
                    {"applied", posted}});
    return;
  }
  for (const Difference& each : differences) {
    printLine(session,
              pathText(each.path) + ": " + textOf(each.before) + " -> " + textOf(each.after));
  }
  if (differences.empty()) printLine(session, "nothing to change");
  if (options.is_dry_run) printLine(session, "nothing was written");
  // Whoever switches it off knows that.
  if (!isEnabled(edit.before) && !isEnabled(edit.after)) {
    printLine(session, "the daemon is switched off; vorlatchctl enable switches it on");
  }
}

void postApply() {
  if (!platform::postNotification(kApplyNotificationName)) {
    failCouldNot("the notification could not be posted; what was to be written is written");
  }
}

ExitStatus edit(const Session& session, const EditOptions& options,
                const std::function<void(Dictionary&)>& change) {
  const Edit edit = editPreferences(change, !options.is_dry_run);
  const bool posts =
      options.applies && !options.is_dry_run && !isIdentical(edit.before, edit.after);
  if (posts) postApply();
  report(session, options, edit, posts);
  return kDone;
}

// What cannot be read counts as nothing: it goes in any case.
Dictionary readableAt(const std::string& path) {
  try {
    return readStoredPreferences(path).dictionary;
  } catch (const Failure&) {
    return {};
  }
}

ExitStatus replaceFile(const Session& session, const EditOptions& options,
                       const Dictionary& preferences) {
  const std::string path = daemonFile(kPreferencesFileName);
  const Descriptor lock = lockPreferences();
  const Edit edit{.before = readableAt(path), .after = preferences};
  const bool writes = !options.is_dry_run && !isIdentical(edit.before, edit.after);
  if (writes) writeStoredPreferences(path, {.dictionary = preferences});
  const bool posts = options.applies && writes;
  if (posts) postApply();
  report(session, options, edit, posts);
  return kDone;
}

// The dictionary under the key, made when there is none; a Failure when something else stands
// there.
Dictionary& dictionaryUnder(Dictionary& parent, const std::string& key) {
  auto entry = parent.find(key);
  if (entry == parent.end()) entry = parent.emplace(key, Dictionary{}).first;
  auto* dictionary = entry->second.as<Dictionary>();
  if (dictionary == nullptr) {
    failCouldNot(key + " is " + kindText(entry->second) +
                 " and no dictionary; vorlatchctl check says more, and nothing is changed");
  }
  return *dictionary;
}

Dictionary& targetsOf(Dictionary& preferences) {
  return dictionaryUnder(preferences, keys::kAppConfigs);
}

[[noreturn]] void failUnknownTarget(const Dictionary& targets, const std::string& target) {
  std::vector<std::string> known;
  for (const auto& [key, settings] : targets) known.push_back(key);
  failWrongUsage("no target " + target + " is configured" + suggestion(target, known));
}

const SettingRule& ruleOf(std::string_view key) {
  const SettingRule* rule = settingRule(key);
  if (rule == nullptr) {
    failWrongUsage("there is no key " + std::string(key) + suggestion(key, settingKeys()));
  }
  return *rule;
}

}  // namespace

ExitStatus setCommand(const Session& session, const EditOptions& options, const std::string& target,
                      const std::vector<std::string>& assignments) {
  if (target.empty() || !isValidUtf8(target) || target.find('\0') != target.npos) {
    failWrongUsage("a target is a bundle identifier or a process name");
  }
  Dictionary settings;
  for (const std::string& assignment : assignments) {
    const std::size_t equals = assignment.find('=');
    if (equals == assignment.npos || equals == 0) {
      failWrongUsage("\"" + assignment + "\" is not KEY=VALUE");
    }
    const SettingRule& rule = ruleOf(assignment.substr(0, equals));
    settings.insert_or_assign(rule.key, parseSetting(rule, assignment.substr(equals + 1)));
  }
  return edit(session, options, [&](Dictionary& preferences) {
    Dictionary& stored = dictionaryUnder(targetsOf(preferences), target);
    for (const auto& [key, value] : settings) {
      const Value* old_value = plist::find(stored, key);
      if (old_value == nullptr || !isIdentical(*old_value, value)) {
        stored.insert_or_assign(key, value);
      }
    }
  });
}

ExitStatus unsetCommand(const Session& session, const EditOptions& options,
                        const std::string& target, const std::vector<std::string>& keys) {
  return edit(session, options, [&](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    if (!targets.contains(target)) failUnknownTarget(targets, target);
    Dictionary& settings = dictionaryUnder(targets, target);
    for (const std::string& key : keys) {
      // A key that only this file knows may be taken out as well.
      if (settings.erase(key) == 0) ruleOf(key);
    }
  });
}

ExitStatus removeCommand(const Session& session, const EditOptions& options,
                         const std::vector<std::string>& removed) {
  return edit(session, options, [&](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    for (const std::string& target : removed) {
      if (!targets.contains(target)) failUnknownTarget(targets, target);
    }
    for (const std::string& target : removed) targets.erase(target);
  });
}

ExitStatus switchCommand(const Session& session, const EditOptions& options, bool on) {
  return edit(session, options,
              [on](Dictionary& preferences) { preferences.insert_or_assign(keys::kEnabled, on); });
}

ExitStatus presetCommand(const Session& session, const EditOptions& options,
                         const PresetOptions& preset) {
  if (preset.replaces_file) return replaceFile(session, options, defaultPreset());
  return edit(session, options, [&](Dictionary& preferences) {
    Dictionary& targets = targetsOf(preferences);
    for (const auto& [key, settings] : appConfigs(defaultPreset())) {
      if (preset.replaces_targets) {
        targets.insert_or_assign(key, settings);
      } else {
        targets.try_emplace(key, settings);
      }
    }
  });
}

ExitStatus applyCommand(const Session& session) {
  postApply();
  if (Observation::now({}).daemon_pids.empty()) {
    failCouldNot(
        "the daemon does not run, so nothing is applied; it applies what the preferences "
        "say when it is started");
  }
  if (session.wants_json) print(session, {{"applied", true}});
  return kDone;
}

}  // namespace vorlatch::cli
