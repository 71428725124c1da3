#include "cli/completion.h"

#include <algorithm>
#include <set>

#include "cli/arguments.h"
#include "config/preferences.h"
#include "control/setting_text.h"
#include "proc/process_lookup.h"

namespace vorlatch::cli {
namespace {

bool takesValue(const Argument& argument) {
  return !std::holds_alternative<bool*>(argument.value);
}

const Argument* optionNamed(const Arguments& arguments, const std::string& name) {
  for (const Argument& argument : arguments) {
    if (!argument.isOption()) continue;
    const Words names = argument.names();
    if (std::find(names.begin(), names.end(), name) != names.end()) return &argument;
  }
  return nullptr;
}

// Returns the positional argument at this index, or null. The last one may take all that follow.
const Argument* positionalAt(const Arguments& arguments, std::size_t place) {
  for (const Argument& argument : arguments) {
    if (argument.isOption()) continue;
    if (place == 0 || std::holds_alternative<Words*>(argument.value)) return &argument;
    --place;
  }
  return nullptr;
}

Words optionNames(const Arguments& arguments) {
  Words all{"--help"};
  for (const Argument& argument : arguments) {
    if (!argument.isOption()) continue;
    for (std::string& name : argument.names()) {
      if (name.starts_with("--")) all.push_back(std::move(name));
    }
  }
  return all;
}

}  // namespace

Words wordsToComplete(const Words& words) {
  const std::string unfinished = words.empty() ? std::string() : words.back();
  bool unused = false;
  Arguments arguments = commonArguments(unused);
  Run work;  // owns what the arguments point to
  const Argument* awaiting_value = nullptr;
  bool has_command = false;
  std::size_t place = 0;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    const std::string& word = words[i];
    if (awaiting_value != nullptr) {
      awaiting_value = nullptr;
    } else if (word.starts_with('-')) {
      const Argument* option = optionNamed(arguments, word);
      if (option != nullptr && takesValue(*option)) awaiting_value = option;
    } else if (has_command) {
      ++place;
    } else {
      has_command = true;
      const Command* command = findCommand(word);
      Arguments own;
      if (command != nullptr) work = command->prepare(own);
      arguments.insert(arguments.end(), own.begin(), own.end());
    }
  }
  if (awaiting_value == nullptr && unfinished.starts_with('-')) return optionNames(arguments);
  if (!has_command && awaiting_value == nullptr) return commandNames();
  const Argument* taken =
      awaiting_value != nullptr ? awaiting_value : positionalAt(arguments, place);
  return taken != nullptr && taken->offer != nullptr ? taken->offer(unfinished) : Words{};
}

Words configuredTargets(const std::string& /*unfinished*/) {
  Words targets;
  for (const auto& [key, settings] : appConfigs(loadPreferences())) targets.push_back(key);
  return targets;
}

Words runningNames(const std::string& /*unfinished*/) {
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
    for (const std::string& key : control::settingKeyNames()) words.push_back(key + "=");
    return words;
  }
  const std::string key = unfinished.substr(0, equals);
  const SettingKey* row = findSettingKey(key);
  if (row != nullptr && row->kind == SettingKey::Kind::Boolean) {
    words = {key + "=true", key + "=false"};
  } else if (key == keys::kJetsamPriority) {
    for (const std::string& band : control::bandNames()) words.push_back(key + "=" + band);
  }
  return words;
}

Words settingKeyWords(const std::string& /*unfinished*/) {
  return control::settingKeyNames();
}

}  // namespace vorlatch::cli
