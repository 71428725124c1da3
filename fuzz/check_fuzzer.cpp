// Feeds whole preferences files to vorlatchctl: to `check` and other commands that read, and to
// edits.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include <gtest/gtest.h>

#include "base/binary_property_list.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "control/preferences_edit.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/system_under_test.h"
#include "platform/property_list.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;
using tests::Output;

constexpr const char* kTarget = "SpringBoard";

// Expects one line per finding, or one line that says that there is none, and one line with the
// size of a readable file. `check` must report exactly the files that the daemon cannot read as
// unreadable.
void check(SystemUnderTest& system, std::string_view input) {
  const Output json = system.look({"check"}, true);
  const auto findings = nlohmann::json::parse(json.out).at("findings");
  EXPECT_EQ(json.status, findings.empty() ? 0 : 1);
  const Output text = system.look({"check"}, false);
  EXPECT_EQ(text.status, json.status);
  const auto lines = static_cast<std::size_t>(std::count(text.out.begin(), text.out.end(), '\n'));
  const std::optional<Value> root = propertyListIn(input);
  const bool is_readable = root && root->as<Dictionary>() != nullptr;
  const bool is_said_unreadable = findings.size() == 1 && findings[0].at("kind") == "unreadable";
  EXPECT_EQ(is_said_unreadable, !is_readable) << text.out;
  EXPECT_EQ(lines, std::max<std::size_t>(findings.size(), 1) + (is_readable ? 1 : 0)) << text.out;
}

// The preferences with the target's nice value; std::nullopt if they have no place for it.
std::optional<Dictionary> withNiceValue(const Dictionary& before, const Value& nice_value) {
  Dictionary after = before;
  auto* targets = after.try_emplace(keys::kAppConfigs, Dictionary{}).first->second.as<Dictionary>();
  if (targets == nullptr) return std::nullopt;
  auto* settings = targets->try_emplace(kTarget, Dictionary{}).first->second.as<Dictionary>();
  if (settings == nullptr) return std::nullopt;
  settings->insert_or_assign(keys::kNiceValue, nice_value);
  return after;
}

Dictionary withoutTarget(Dictionary preferences) {
  preferences.at(keys::kAppConfigs).as<Dictionary>()->erase(kTarget);
  return preferences;
}

// Whether a text in the binary list contains a NUL, at which C libraries would cut it off.
bool holdsNul(std::string_view bytes) {
  using Kind = plist::BinaryObject::Kind;
  const auto list = plist::BinaryPropertyList::open(bytes);
  for (std::uint64_t i = 0; list && i < list->objectCount(); ++i) {
    const auto object = list->object(i);
    if (!object) continue;
    const std::string_view text = object->payload;
    if (object->kind == Kind::AsciiString && text.find('\0') != text.npos) return true;
    for (std::size_t at = 0; object->kind == Kind::Utf16String && at < text.size(); at += 2) {
      if (text[at] == '\0' && text[at + 1] == '\0') return true;
    }
  }
  return false;
}

// Whether an edit of these bytes, which stand for `before`, may produce `after`: the bytes must be
// read completely, and `after` must survive a round trip through the file's format. An edit without
// a change is always allowed.
bool mayBecome(std::string_view bytes, const Dictionary& before, const Dictionary& after) {
  if (control::isIdentical(before, after)) return true;
  const bool is_binary = plist::isBinaryPropertyList(bytes);
  if (is_binary && holdsNul(bytes)) return false;
  const std::optional<Value> back = propertyListIn(
      is_binary ? platform::writeBinaryPropertyList(after) : platform::writeXmlPropertyList(after));
  return back && control::isIdentical(*back, after);
}

// The expected preferences after setting the nice value; std::nullopt if the edit must be refused.
std::optional<Dictionary> afterSetting(std::string_view bytes, const Value& nice_value) {
  const std::optional<Value> root = propertyListIn(bytes);
  const auto* before = root ? root->as<Dictionary>() : nullptr;
  if (before == nullptr) return std::nullopt;
  std::optional<Dictionary> after = withNiceValue(*before, nice_value);
  return after && mayBecome(bytes, *before, *after) ? after : std::nullopt;
}

Output setNiceValue(SystemUnderTest& system) {
  return system.edit({"set", kTarget, "NiceValue=-5"}, false);
}

void expectStored(const SystemUnderTest& system, const Dictionary& preferences, bool is_binary) {
  const std::string bytes = tests::readAll(system.preferencesFile());
  const std::optional<Value> root = propertyListIn(bytes);
  EXPECT_TRUE(root && control::isIdentical(*root, preferences)) << bytes;
  EXPECT_EQ(plist::isBinaryPropertyList(bytes), is_binary);
}

void removeOne(SystemUnderTest& system, const Dictionary& before) {
  const std::string bytes = tests::readAll(system.preferencesFile());
  const Dictionary after = withoutTarget(before);
  const bool may = mayBecome(bytes, before, after);
  const Output output = system.edit({"remove", kTarget}, false);
  EXPECT_EQ(output.status, may ? 0 : 3) << output.err;
  expectStored(system, may ? after : before, plist::isBinaryPropertyList(bytes));
}

void editOne(SystemUnderTest& system, std::string_view input) {
  const std::optional<Dictionary> expected = afterSetting(input, -5);
  const Output output = setNiceValue(system);
  const std::string written = tests::readAll(system.preferencesFile());
  EXPECT_EQ(output.status, expected ? 0 : 3) << output.err;
  if (!expected) {
    EXPECT_EQ(written, input);
    return;
  }
  expectStored(system, *expected, plist::isBinaryPropertyList(input));
  EXPECT_EQ(setNiceValue(system).status, 0);
  EXPECT_EQ(tests::readAll(system.preferencesFile()), written);
  // An edit without a change does not notify the daemon, so the test does.
  if (written == input) system.post();
  system.Story::run(150ms);
  system.expectTrueStatus(*expected);
  removeOne(system, *expected);
}

void editMore(SystemUnderTest& system) {
  system.edit({"enable"}, true);
  system.edit({"preset", "--replace"}, false);
}

}  // namespace

const Words& vocabulary() {
  return preferencesWords();
}

void feed(std::string_view input) {
  static SystemUnderTest& system = *new SystemUnderTest;
  system.feed([&] {
    system.putPreferences(input);
    check(system, input);
    for (const bool wants_json : {false, true}) {
      for (const Words& words :
           {Words{"list"}, Words{"plan"}, Words{"show", kTarget}, Words{"status"}}) {
        system.look(words, wants_json);
      }
    }
    editOne(system, input);
    editMore(system);
  });
}

}  // namespace vorlatch::fuzz
