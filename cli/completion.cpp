#include "cli/completion.h"

#include <algorithm>
#include <set>
#include <utility>

#include "cli/arguments.h"
#include "cli/bands.h"
#include "cli/display_text.h"
#include "cli/log_reader.h"
#include "cli/settings_schema.h"
#include "config/preferences.h"
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
    names.insert(process.name);
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

// What stands in front of the word to complete.
struct Typed {
  std::string command;
  std::size_t place = 0;  // how many words of its own the command has
  std::string option;     // the one whose value the word is
};

Typed typedBefore(const Words& words) {
  Typed typed;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    if (!std::exchange(typed.option, {}).empty()) continue;  // the value of the option before
    if (words[i].starts_with('-')) {
      if (isOneOf(words[i], optionNames(typed.command, true))) typed.option = words[i];
    } else if (typed.command.empty()) {
      typed.command = words[i];
    } else {
      ++typed.place;
    }
  }
  return typed;
}

Words valuesOf(const std::string& option) {
  if (option == "--target") return configuredTargets();
  if (option == "--category") return logCategories();
  return {};
}

Words candidates(const Typed& typed, const std::string& unfinished) {
  const std::string& command = typed.command;
  const bool first = typed.place == 0;
  if (!typed.option.empty()) return valuesOf(typed.option);
  if (unfinished.starts_with('-')) return optionNames(command);
  if (command.empty()) return commandNames();
  if (first && command == "match") return runningNames();
  if (first && command == "set") {
    Words words = configuredTargets();
    add(words, runningNames());
    return words;
  }
  const bool takes_targets =
      isOneOf(command, {"status", "remove"}) || (first && isOneOf(command, {"show", "unset"}));
  if (takes_targets) return configuredTargets();
  if (command == "set") return assignments(unfinished);
  if (command == "unset") return settingKeys();
  return {};
}

}  // namespace

ExitStatus completeCommand(const Session& session, const std::vector<std::string>& words) {
  const std::string unfinished = words.empty() ? std::string() : words.back();
  std::set<std::string> shown;
  for (const std::string& word : candidates(typedBefore(words), unfinished)) {
    // A name that would break the list apart or command the terminal is not offered.
    const bool fits = visible(word) == word;
    if (fits && word.starts_with(unfinished) && shown.insert(word).second) {
      session.terminal.out(word + "\n");
    }
  }
  return kDone;
}

}  // namespace vorlatch::cli
