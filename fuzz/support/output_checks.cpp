#include "fuzz/support/output_checks.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "tests/cli/control_run.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;

// Control characters except for line ends, direction marks, and separators, embeddings and
// isolates.
Words harmfulCharacters() {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges{
      {0x00, 0x09},     {0x0B, 0x1F},     {0x7F, 0x9F},    {0x61C, 0x61C},
      {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
  Words characters;
  for (const auto& [first, last] : ranges) {
    for (std::uint32_t code_point = first; code_point <= last; ++code_point) {
      appendUtf8(characters.emplace_back(), code_point);
    }
  }
  return characters;
}

bool holds(const Words& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

}  // namespace

void expectHarmless(std::string text, bool may_draw) {
  EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
  static const Words drawings =
      tests::wordsOf("[0m [1m [2m [31m [32m [33m [36m [2J [H [K [J [?7l [?7h");
  for (const std::string& drawing : drawings) {
    std::size_t at = 0;
    // Leaves a character behind, so that no drawing hides a command around it.
    while (may_draw && (at = text.find("\x1b" + drawing, at)) != text.npos) {
      text.replace(at, drawing.size() + 1, "~");
    }
  }
  static const Words harmful = harmfulCharacters();
  for (const std::string& character : harmful) {
    EXPECT_EQ(text.find(character), text.npos) << testing::PrintToString(text);
  }
}

void expectJson(const std::string& text) {
  std::istringstream stream(text);
  nlohmann::json value;
  while (!(stream >> std::ws).eof()) {
    EXPECT_NO_THROW(stream >> value) << testing::PrintToString(text);
  }
}

std::string commandOf(const Words& words) {
  const auto command = std::find_if(words.begin(), words.end(),
                                    [](const std::string& word) { return !word.starts_with('-'); });
  return command == words.end() ? std::string() : *command;
}

bool holdsPrefix(const Words& words, std::string_view prefix) {
  return std::any_of(words.begin(), words.end(),
                     [prefix](const std::string& word) { return word.starts_with(prefix); });
}

Dictionary withoutNamed(Dictionary preferences, const Words& words) {
  const std::string command = commandOf(words);
  if (holds({"enable", "disable", "release"}, command)) preferences.erase(keys::kEnabled);
  if (!holds({"set", "unset", "remove", "preset"}, command)) return preferences;
  const auto place = preferences.try_emplace(keys::kAppConfigs, Dictionary{}).first;
  auto* const targets = place->second.as<Dictionary>();
  if (targets == nullptr) return preferences;
  for (auto& [name, target] : *targets) {
    auto* const settings = target.as<Dictionary>();
    if (settings == nullptr || !holds(words, name)) continue;
    std::erase_if(*settings, [&](const auto& setting) {
      return command == "set"     ? holdsPrefix(words, setting.first + "=")
             : command == "unset" ? holds(words, setting.first)
                                  : false;
    });
  }
  std::erase_if(*targets, [&](const auto& entry) {
    const auto& [name, target] = entry;
    if (command == "preset") return appConfigs(defaultPreset()).contains(name);
    const bool may_be_new = command == "set" && target == Value(Dictionary{});
    return holds(words, name) && (command == "remove" || may_be_new);
  });
  return preferences;
}

}  // namespace vorlatch::fuzz
