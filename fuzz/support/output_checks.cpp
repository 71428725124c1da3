#include "fuzz/support/output_checks.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "control/preferences_edit.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;
using Path = std::vector<std::string>;

// Removes colours, and the cursor moves and erasures of `status --watch`.
std::string undrawn(std::string_view text) {
  constexpr std::array<std::string_view, 13> kDrawing = {
      "\x1b[0m", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[36m",
      "\x1b[2J", "\x1b[H",  "\x1b[K",  "\x1b[J",   "\x1b[?7l", "\x1b[?7h"};
  std::string rest;
  while (!text.empty()) {
    const auto* const drawing =
        std::find_if(kDrawing.begin(), kDrawing.end(),
                     [text](std::string_view each) { return text.starts_with(each); });
    if (drawing == kDrawing.end()) rest += text[0];
    text.remove_prefix(drawing == kDrawing.end() ? 1 : drawing->size());
  }
  return rest;
}

bool isIn(char byte, unsigned first, unsigned last) {
  const unsigned value = static_cast<unsigned char>(byte);
  return value >= first && value <= last;
}

// The forbidden UTF-8 sequences: C0 and DEL; C1 (from C2 80); direction marks, embeddings and
// separators (D8 9C, from E2 80 8E, from E2 80 A8); isolates (from E2 81 A6).
bool beginsWithCommand(std::string_view text) {
  if (text[0] != '\n' && (isIn(text[0], 0, 0x1F) || text[0] == '\x7F')) return true;
  if (text.size() >= 2 && text[0] == '\xC2') return isIn(text[1], 0x80, 0x9F);
  if (text.starts_with("\xD8\x9C")) return true;
  if (text.size() < 3 || text[0] != '\xE2') return false;
  if (text[1] == '\x81') return isIn(text[2], 0xA6, 0xA9);
  return text[1] == '\x80' && (isIn(text[2], 0x8E, 0x8F) || isIn(text[2], 0xA8, 0xAE));
}

bool isNamed(const std::string& text, const Words& words) {
  return std::find(words.begin(), words.end(), text) != words.end();
}

bool isAssigned(const std::string& key, const Words& words) {
  return std::any_of(words.begin(), words.end(),
                     [&key](const std::string& word) { return word.starts_with(key + "="); });
}

bool mayChange(const Path& path, const Words& words) {
  const std::string command = commandOf(words);
  if (path[0] == keys::kEnabled) {
    return command == "enable" || command == "disable" || command == "release";
  }
  if (path[0] != keys::kAppConfigs) return false;
  if (path.size() == 1) return command == "set" || command == "preset";
  if (command == "preset") return appConfigs(defaultPreset()).contains(path[1]);
  if (!isNamed(path[1], words)) return false;
  if (command == "remove") return true;
  if (path.size() == 2) return command == "set";
  return command == "set" ? isAssigned(path[2], words)
                          : command == "unset" && isNamed(path[2], words);
}

void expectNamed(const Value* before, const Value* after, const Path& path, const Words& words);

void expectEntriesNamed(const Dictionary& before, const Dictionary& after, const Path& above,
                        const Words& words) {
  Dictionary all = before;
  all.insert(after.begin(), after.end());
  for (const auto& [key, value] : all) {
    Path path = above;
    path.push_back(key);
    expectNamed(plist::find(before, key), plist::find(after, key), path, words);
  }
}

void expectNamed(const Value* before, const Value* after, const Path& path, const Words& words) {
  static const Dictionary nothing;
  if (before != nullptr && after != nullptr && control::isIdentical(*before, *after)) return;
  const auto* old_entries = before != nullptr ? before->as<Dictionary>() : &nothing;
  const auto* new_entries = after != nullptr ? after->as<Dictionary>() : &nothing;
  const bool is_empty_now = (old_entries == nullptr || old_entries->empty()) &&
                            (new_entries == nullptr || new_entries->empty());
  if (old_entries != nullptr && new_entries != nullptr && !is_empty_now) {
    expectEntriesNamed(*old_entries, *new_entries, path, words);
    return;
  }
  std::string text;
  for (const std::string& key : path) text += " / " + key;
  EXPECT_TRUE(mayChange(path, words)) << "changed:" << text;
}

}  // namespace

void expectHarmless(std::string_view text, bool may_draw) {
  EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(std::string(text));
  const std::string said = may_draw ? undrawn(text) : std::string(text);
  for (std::size_t i = 0; i < said.size(); ++i) {
    EXPECT_FALSE(beginsWithCommand(std::string_view(said).substr(i)))
        << "at " << i << " of " << testing::PrintToString(said);
  }
}

void expectJson(std::string_view text) {
  std::istringstream stream{std::string(text)};
  while (stream >> std::ws && stream.peek() != std::istringstream::traits_type::eof()) {
    try {
      nlohmann::json value;
      stream >> value;
    } catch (const nlohmann::json::exception& error) {
      ADD_FAILURE() << error.what() << " in " << testing::PrintToString(std::string(text));
      return;
    }
  }
}

std::string commandOf(const Words& words) {
  const auto command = std::find_if(words.begin(), words.end(),
                                    [](const std::string& word) { return !word.starts_with('-'); });
  return command == words.end() ? std::string() : *command;
}

bool isEdit(std::string_view command) {
  constexpr std::array<std::string_view, 7> kEdits = {"set",     "unset",  "remove", "enable",
                                                      "disable", "preset", "release"};
  return std::find(kEdits.begin(), kEdits.end(), command) != kEdits.end();
}

void expectOnlyNamedChanges(const Dictionary& before, const Dictionary& after, const Words& words) {
  const bool replaces_file = std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word.starts_with("--replace-file");
  });
  if (!replaces_file) expectEntriesNamed(before, after, {}, words);
}

}  // namespace vorlatch::fuzz
