#include "cli/completion.h"

#include <algorithm>
#include <set>

#include "cli/arguments.h"
#include "cli/bands.h"
#include "cli/settings_schema.h"
#include "config/preferences.h"
#include "platform/utf8.h"
#include "proc/process_lookup.h"

namespace vorlatch::cli {
namespace {

using Words = std::vector<std::string>;

bool isOneOf(const std::string& word, const Words& words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

void add(Words& words, const Words& more) {
  words.insert(words.end(), more.begin(), more.end());
}

Words configuredTargets() {
  Words targets;
  for (const auto& [key, settings] : appConfigs(loadPreferences())) targets.push_back(key);
  return targets;
}

Words runningNames() {
  std::set<std::string> names;
  for (const RunningProcess& process : listRunningProcesses()) {
    if (isValidUtf8(process.name)) names.insert(process.name);
    if (process.bundle_identifier) names.insert(*process.bundle_identifier);
  }
  return {names.begin(), names.end()};
}

Words assignments(const std::string& unfinished) {
  const std::size_t equals = unfinished.find('=');
  Words words;
  if (equals == unfinished.npos) {
    for (const std::string& key : settingKeys()) words.push_back(key + "=");
    return words;
  }
  const std::string key = unfinished.substr(0, equals);
  const SettingRule* rule = settingRule(key);
  if (rule != nullptr && rule->kind == SettingKind::Boolean) {
    words = {key + "=true", key + "=false"};
  } else if (key == keys::kJetsamPriority) {
    for (const Band& band : jetsamBands()) {
      if (!band.is_reserved) words.push_back(key + "=" + band.name);
    }
  }
  return words;
}

// What may stand at the place of the word, the command being known.
Words candidates(const std::string& command, std::size_t place, const std::string& unfinished) {
  if (unfinished.starts_with('-')) return optionNames(command);
  Words words;
  const bool first = place == 0;
  if (isOneOf(command, {"status", "remove"}) || (first && isOneOf(command, {"show", "unset"}))) {
    words = configuredTargets();
  } else if (first && command == "set") {
    words = configuredTargets();
    add(words, runningNames());
  } else if (first && command == "match") {
    words = runningNames();
  } else if (command == "set") {
    words = assignments(unfinished);
  } else if (command == "unset") {
    words = settingKeys();
  }
  return words;
}

}  // namespace

ExitStatus completeCommand(const Session& session, const std::vector<std::string>& words) {
  const std::string unfinished = words.empty() ? std::string() : words.back();
  std::string command;
  std::size_t place = 0;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    if (words[i].starts_with('-')) continue;
    if (command.empty()) {
      command = words[i];
    } else {
      ++place;
    }
  }
  Words offered;
  if (command.empty() && !unfinished.starts_with('-')) {
    offered = commandNames();
  } else {
    offered = candidates(command, place, unfinished);
  }
  std::set<std::string> shown;
  for (const std::string& word : offered) {
    // A name that would break the list apart is not offered.
    const bool fits = word.find_first_of("\n\r") == word.npos;
    if (fits && word.starts_with(unfinished) && shown.insert(word).second) {
      session.terminal.out(word + "\n");
    }
  }
  return kDone;
}

}  // namespace vorlatch::cli
