// Whole preferences files through vorlatchctl: what it says of them, and its edits of them.
#include <algorithm>
#include <nlohmann/json.hpp>
#include <optional>

#include <gtest/gtest.h>

#include "cli/commands.h"
#include "cli/preferences_edit.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/subject.h"
#include "platform/binary_property_list.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;
using tests::Output;

constexpr const char* kTarget = "SpringBoard";

// As text each finding is a line, and the daemon reads nothing only where that is said.
void check(Subject& subject, std::string_view input) {
  const Command check_it = [](const cli::Session& session) {
    return cli::checkCommand(session, {});
  };
  const Output json = subject.look(check_it, true);
  const auto findings = nlohmann::json::parse(json.out).at("findings");
  EXPECT_EQ(json.status, findings.empty() ? 0 : 1);
  const Output text = subject.look(check_it, false);
  EXPECT_EQ(text.status, json.status);
  const auto lines = static_cast<std::size_t>(std::count(text.out.begin(), text.out.end(), '\n'));
  EXPECT_EQ(lines, std::max<std::size_t>(findings.size(), 1)) << text.out;

  const std::optional<Value> root = propertyListIn(input);
  const bool is_readable = root && root->as<Dictionary>() != nullptr;
  const bool is_said_unreadable = findings.size() == 1 && findings[0].at("kind") == "unreadable";
  EXPECT_EQ(is_said_unreadable, !is_readable) << text.out;
}

// The value as the given edits should leave it; nothing where they have to be refused.
std::optional<Dictionary> withNiceValue(const Dictionary& before, const Value& nice_value) {
  Dictionary after = before;
  auto* targets = after.try_emplace(keys::kAppConfigs, Dictionary{}).first->second.as<Dictionary>();
  if (targets == nullptr) return std::nullopt;
  auto* settings = targets->try_emplace(kTarget, Dictionary{}).first->second.as<Dictionary>();
  if (settings == nullptr) return std::nullopt;
  settings->insert_or_assign(keys::kNiceValue, nice_value);
  return after;
}

// A text in a binary list may hold a NUL, behind which libraries written in C read nothing; and a
// text in XML may hold what is written, but not read again as it was.
bool mayBeUnwritable(std::string_view input) {
  return plist::isBinaryPropertyList(input);
}

Output setNiceValue(Subject& subject) {
  return subject.edit(
      [](const cli::Session& session) {
        return cli::setCommand(session, {}, kTarget, {"NiceValue=-5"});
      },
      false);
}

void editOne(Subject& subject, std::string_view input) {
  const std::optional<Value> root = propertyListIn(input);
  const auto* before = root ? root->as<Dictionary>() : nullptr;
  const std::optional<Dictionary> expected =
      before != nullptr ? withNiceValue(*before, -5) : std::nullopt;
  const Output output = setNiceValue(subject);
  const std::string written = tests::readAll(subject.preferencesFile());
  if (output.status != 0) {
    EXPECT_EQ(output.status, 3);
    EXPECT_TRUE(!expected || mayBeUnwritable(input)) << output.err;
    EXPECT_EQ(written, input);
    return;
  }
  ASSERT_TRUE(expected.has_value());
  const std::optional<Value> after = propertyListIn(written);
  EXPECT_TRUE(after && cli::isIdentical(*after, *expected)) << written;
  EXPECT_EQ(plist::isBinaryPropertyList(written), plist::isBinaryPropertyList(input));
  EXPECT_EQ(setNiceValue(subject).status, 0);
  EXPECT_EQ(tests::readAll(subject.preferencesFile()), written);
  // The daemon heard of it, and does as it says.
  subject.Story::run(150ms);
  subject.expectTrueStatus(*expected);
  const Output removed = subject.edit(
      [](const cli::Session& session) { return cli::removeCommand(session, {}, {kTarget}); },
      false);
  EXPECT_EQ(removed.status, 0);
  EXPECT_FALSE(appConfigs(readDictionary(subject.preferencesFile())).contains(kTarget));
}

void editMore(Subject& subject) {
  const cli::EditOptions options;
  subject.edit(
      [&](const cli::Session& session) { return cli::switchCommand(session, options, true); },
      true);
  subject.edit(
      [&](const cli::Session& session) {
        return cli::presetCommand(session, options, {.replaces_targets = true});
      },
      false);
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
      subject.look(cli::listCommand, wants_json);
      subject.look(cli::planCommand, wants_json);
      subject.look([](const auto& session) { return cli::showCommand(session, kTarget); },
                   wants_json);
      subject.look([](const auto& session) { return cli::statusCommand(session, {}); }, wants_json);
    }
    editOne(subject, input);
    editMore(subject);
  });
}

}  // namespace vorlatch::fuzz
