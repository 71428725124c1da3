#include "cli/completion.h"

#include <set>

#include "cli/arguments.h"
#include "config/preferences.h"
#include "control/setting_text.h"
#include "proc/process_lookup.h"

namespace vorlatch::cli {
namespace {

Words optionNames(const Arguments& arguments) {
  Words all;
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
  ArgumentParser parser;
  for (std::size_t i = 0; i + 1 < words.size(); ++i) {
    try {
      parser.take(words[i]);
    } catch (const control::Failure&) {
      continue;  // offers what fits behind a wrong word, too
    }
  }
  if (!parser.awaitsValue() && unfinished.starts_with('-')) return optionNames(parser.arguments());
  if (parser.awaitsCommand()) return commandNames();
  const Argument* next = parser.next();
  return next != nullptr && next->offer != nullptr ? next->offer(unfinished) : Words{};
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
