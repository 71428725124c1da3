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
#include "fuzz/support/scene.h"
#include "fuzz/support/system_under_test.h"

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
  const Output json = system.type({"check", "--json"});
  const auto findings = nlohmann::json::parse(json.out).at("findings");
  EXPECT_EQ(json.status, findings.empty() ? 0 : 1);
  const Output text = system.type({"check"});
  EXPECT_EQ(text.status, json.status);
  const auto lines = static_cast<std::size_t>(std::count(text.out.begin(), text.out.end(), '\n'));
  const bool is_readable = dictionaryIn(input).has_value();
  const bool is_said_unreadable = findings.size() == 1 && findings[0].at("code") == "unreadable";
  EXPECT_EQ(is_said_unreadable, !is_readable) << text.out;
  EXPECT_EQ(lines, std::max<std::size_t>(findings.size(), 1) + (is_readable ? 1 : 0)) << text.out;
}

// std::nullopt if the preferences have no place for the nice value.
std::optional<Dictionary> withNiceValue(Dictionary preferences) {
  auto* targets =
      preferences.try_emplace(keys::kAppConfigs, Dictionary{}).first->second.as<Dictionary>();
  if (targets == nullptr) return std::nullopt;
  const Dictionary settings_of_new_target{{keys::kJetsamPriority, -1}};
  auto* settings =
      targets->try_emplace(kTarget, settings_of_new_target).first->second.as<Dictionary>();
  if (settings == nullptr) return std::nullopt;
  settings->insert_or_assign(keys::kNiceValue, -5);
  return preferences;
}

std::optional<Dictionary> withoutTarget(Dictionary preferences) {
  preferences.at(keys::kAppConfigs).as<Dictionary>()->erase(kTarget);
  return preferences;
}

// Whether a text in the binary list contains a NUL, at which C libraries would cut it off.
bool holdsNul(std::string_view bytes) {
  using Kind = plist::BinaryObject::Kind;
  const auto list = plist::BinaryPropertyList::open(bytes);
  for (std::uint64_t i = 0; list && i < list->objectCount(); ++i) {
    const auto object = list->object(i);
    if (!object || (object->kind != Kind::AsciiString && object->kind != Kind::Utf16String)) {
      continue;
    }
    const std::string nul(object->kind == Kind::AsciiString ? 1 : 2, '\0');
    for (std::size_t at = 0; at < object->payload.size(); at += nul.size()) {
      if (object->payload.substr(at, nul.size()) == nul) return true;
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
  const std::optional<Value> back = propertyListIn(writtenAs(after, is_binary));
  return back && control::isIdentical(*back, after);
}

// Expects the command to change the file as `change` does, or to be refused and leave it alone.
// Returns whether it was accepted.
bool edit(SystemUnderTest& system, const Words& command,
          std::optional<Dictionary> (*change)(Dictionary)) {
  const std::string bytes = tests::readAll(system.preferencesFile());
  const std::optional<Dictionary> before = dictionaryIn(bytes);
  const std::optional<Dictionary> after = before ? change(*before) : std::nullopt;
  const bool may = after && mayBecome(bytes, *before, *after);
  const Output output = system.type(command);
  EXPECT_EQ(output.status, may ? 0 : 3) << output.err;
  const std::string written = tests::readAll(system.preferencesFile());
  if (!may || control::isIdentical(*before, *after)) {
    EXPECT_EQ(written, bytes);
    return may;
  }
  const std::optional<Dictionary> stored = dictionaryIn(written);
  EXPECT_TRUE(stored && control::isIdentical(*stored, *after)) << written;
  EXPECT_EQ(plist::isBinaryPropertyList(written), plist::isBinaryPropertyList(bytes));
  return true;
}

void editTarget(SystemUnderTest& system) {
  const Words set{"set", kTarget, "NiceValue=-5"};
  if (!edit(system, set, withNiceValue)) return;
  EXPECT_TRUE(edit(system, set, withNiceValue));
  // An edit without a change does not notify the daemon, so the test does.
  system.postAndRun();
  system.expectTrueStatus();
  edit(system, {"remove", kTarget}, withoutTarget);
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
    for (Words words : {Words{"list"}, {"plan"}, {"show", kTarget}, {"status"}}) {
      system.type(words);
      words.emplace_back("--json");
      system.type(words);
    }
    editTarget(system);
    system.type({"enable", "--json"});
    system.type({"preset", "--replace"});
  });
}

}  // namespace vorlatch::fuzz
