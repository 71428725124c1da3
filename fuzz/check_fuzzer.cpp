// Whole preferences files through vorlatchctl: what it says of them, and its edits of them.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include <gtest/gtest.h>

#include "base/binary_property_list.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "control/preferences_edit.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/subject.h"
#include "platform/property_list.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;
using tests::Output;

constexpr const char* kTarget = "SpringBoard";

// As text each finding is a line, or there is one that says that all is in order, and the size of a
// readable file is another. The daemon reads nothing only where that is said.
void check(Subject& subject, std::string_view input) {
  const Output json = subject.look({"check"}, true);
  const auto findings = nlohmann::json::parse(json.out).at("findings");
  EXPECT_EQ(json.status, findings.empty() ? 0 : 1);
  const Output text = subject.look({"check"}, false);
  EXPECT_EQ(text.status, json.status);
  const auto lines = static_cast<std::size_t>(std::count(text.out.begin(), text.out.end(), '\n'));
  const std::optional<Value> root = propertyListIn(input);
  const bool is_readable = root && root->as<Dictionary>() != nullptr;
  const bool is_said_unreadable = findings.size() == 1 && findings[0].at("kind") == "unreadable";
  EXPECT_EQ(is_said_unreadable, !is_readable) << text.out;
  EXPECT_EQ(lines, std::max<std::size_t>(findings.size(), 1) + (is_readable ? 1 : 0)) << text.out;
}

// The preferences with the target's nice value; nothing where no place is for it.
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

// Whether a text in the binary list holds a NUL. Libraries written in C read nothing behind it.
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

// Whether an edit of these bytes, which stand for `before`, may leave `after`: it was read whole,
// and comes back as it is from the form of the file. What changes nothing may be anything.
bool mayBecome(std::string_view bytes, const Dictionary& before, const Dictionary& after) {
  if (control::isIdentical(before, after)) return true;
  const bool is_binary = plist::isBinaryPropertyList(bytes);
  if (is_binary && holdsNul(bytes)) return false;
  const std::optional<Value> back = propertyListIn(
      is_binary ? platform::writeBinaryPropertyList(after) : platform::writeXmlPropertyList(after));
  return back && control::isIdentical(*back, after);
}

// What stands in the file after the nice value is set; nothing where that has to be refused.
std::optional<Dictionary> afterSetting(std::string_view bytes, const Value& nice_value) {
  const std::optional<Value> root = propertyListIn(bytes);
  const auto* before = root ? root->as<Dictionary>() : nullptr;
  if (before == nullptr) return std::nullopt;
  std::optional<Dictionary> after = withNiceValue(*before, nice_value);
  return after && mayBecome(bytes, *before, *after) ? after : std::nullopt;
}

Output setNiceValue(Subject& subject) {
  return subject.edit({"set", kTarget, "NiceValue=-5"}, false);
}

void expectStored(const Subject& subject, const Dictionary& preferences, bool is_binary) {
  const std::string bytes = tests::readAll(subject.preferencesFile());
  const std::optional<Value> root = propertyListIn(bytes);
  EXPECT_TRUE(root && control::isIdentical(*root, preferences)) << bytes;
  EXPECT_EQ(plist::isBinaryPropertyList(bytes), is_binary);
}

void removeOne(Subject& subject, const Dictionary& before) {
  const std::string bytes = tests::readAll(subject.preferencesFile());
  const Dictionary after = withoutTarget(before);
  const bool may = mayBecome(bytes, before, after);
  const Output output = subject.edit({"remove", kTarget}, false);
  EXPECT_EQ(output.status, may ? 0 : 3) << output.err;
  expectStored(subject, may ? after : before, plist::isBinaryPropertyList(bytes));
}

void editOne(Subject& subject, std::string_view input) {
  const std::optional<Dictionary> expected = afterSetting(input, -5);
  const Output output = setNiceValue(subject);
  const std::string written = tests::readAll(subject.preferencesFile());
  EXPECT_EQ(output.status, expected ? 0 : 3) << output.err;
  if (!expected) {
    EXPECT_EQ(written, input);
    return;
  }
  expectStored(subject, *expected, plist::isBinaryPropertyList(input));
  EXPECT_EQ(setNiceValue(subject).status, 0);
  EXPECT_EQ(tests::readAll(subject.preferencesFile()), written);
  // The daemon heard of it, unless there was nothing to hear of, and does as it says.
  if (written == input) subject.post();
  subject.Story::run(150ms);
  subject.expectTrueStatus(*expected);
  removeOne(subject, *expected);
}

void editMore(Subject& subject) {
  subject.edit({"enable"}, true);
  subject.edit({"preset", "--replace"}, false);
}

}  // namespace

const Words& vocabulary() {
  return preferencesWords();
}

void tell(std::string_view input) {
  static Subject& subject = *new Subject;
  subject.tell([&] {
    subject.putPreferences(input);
    check(subject, input);
    for (const bool wants_json : {false, true}) {
      for (const Words& words :
           {Words{"list"}, Words{"plan"}, Words{"show", kTarget}, Words{"status"}}) {
        subject.look(words, wants_json);
      }
    }
    editOne(subject, input);
    editMore(subject);
  });
}

}  // namespace vorlatch::fuzz
