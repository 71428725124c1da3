// The lists of commands and keys in the documents, in each language. They are made from the
// commands, the table of settings and the texts; scripts/fix writes them.
#include <cctype>
#include <cstdlib>
#include <functional>

#include <gtest/gtest.h>

#include "cli/command.h"
#include "config/target_settings.h"
#include "control/translation.h"
#include "tests/support/files.h"

namespace vorlatch::tests {
namespace {

using cli::Argument;
using control::translated;

// What a list has between the texts of vorlatchctl.
struct Frame {
  const char* manual;  // the heading in the manual page
  const char* table;   // the table's heading and its first two lines
  const char* colon;
  const char* full_stop;
  const char* range;  // before the lowest number
  const char* to;
  const char* usual;  // before the default
  const char* range_end;
};
constexpr Frame kEnglish{.manual = "# COMMANDS\n",
                         .table = "## Commands\n\n| Command | What it does |\n|---|---|\n",
                         .colon = ": ",
                         .full_stop = ".",
                         .range = " (",
                         .to = " to ",
                         .usual = ", default ",
                         .range_end = ")"};
constexpr Frame kChinese{.manual = "# 命令\n",
                         .table = "## 命令\n\n| 命令 | 作用 |\n|---|---|\n",
                         .colon = "：",
                         .full_stop = "。",
                         .range = "（",
                         .to = " 到 ",
                         .usual = "，默认 ",
                         .range_end = "）"};

std::string sentence(std::string text, const Frame& frame = kEnglish) {
  text.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(text.front())));
  return text + frame.full_stop;
}

// Returns the range of a number, and its default if it is fixed.
std::string rangeOf(const Argument& argument, const Frame& frame) {
  const std::string range =
      frame.range + std::to_string(argument.lowest) + frame.to + std::to_string(argument.highest);
  if (auto* const* number = std::get_if<int*>(&argument.value)) {
    return range + frame.usual + std::to_string(**number) + frame.range_end;
  }
  const bool is_number = std::holds_alternative<std::optional<std::size_t>*>(argument.value);
  return is_number ? range + frame.range_end : "";
}

using Markup = std::function<std::string(const Argument&)>;

// Returns the arguments of a command as its help shows them: [OPTION] TARGET...
std::string synopsis(const cli::Arguments& arguments, const Markup& name) {
  std::string text;
  for (const Argument& argument : arguments) {
    std::string shown = name(argument);
    if (std::holds_alternative<cli::Words*>(argument.value)) shown += "...";
    text += argument.is_required ? " " + shown : " \\[" + shown + "\\]";
  }
  return text;
}

// Calls `visit` with each command that users see, and its arguments.
void forEachCommand(const std::function<void(const cli::Command&, const cli::Arguments&)>& visit) {
  for (const cli::Command* command : cli::commands()) {
    if (command->place == 0) continue;
    cli::Arguments arguments;
    const cli::Run owner = command->prepare(arguments);
    visit(*command, arguments);
  }
}

// Returns the manual page's part on commands.
std::string manualCommands(const Frame& frame) {
  std::string text = frame.manual;
  forEachCommand([&](const cli::Command& command, const cli::Arguments& arguments) {
    const Markup name = [](const Argument& argument) {
      if (!argument.isOption()) return "*" + std::string(argument.name) + "*";
      std::string names;
      for (const std::string& each : argument.names()) {
        names += (names.empty() ? "**" : ", **") + each + "**";
      }
      return names + (std::holds_alternative<bool*>(argument.value) ? "" : " *value*");
    };
    text += "\n**" + std::string(command.name) + "**" + synopsis(arguments, name) +
            "\n: " + sentence(translated(command.description), frame) + "\n";
    for (const Argument& argument : arguments) {
      text += name(argument) + frame.colon + translated(argument.description) +
              rangeOf(argument, frame) + frame.full_stop + "\n";
    }
  });
  return text + "\n";
}

// Returns the table of the keys of a target.
std::string preferencesKeys() {
  std::string text =
      "## Keys of a target\n\n| Key | Type | Range | In JSON | Meaning |\n|---|---|---|---|---|\n";
  for (const SettingKey& row : kSettingKeys) {
    const bool is_integer = row.kind == SettingKey::Kind::Integer;
    const bool is_boolean = row.kind == SettingKey::Kind::Boolean;
    text += "| `" + std::string(row.key) + "` | ";
    text += is_integer ? "integer" : is_boolean ? "boolean" : "string";
    text += " | ";
    if (is_integer) text += std::to_string(row.lowest);
    if (is_integer && row.highest == SettingKey::kMost) text += " and up";
    if (is_integer && row.highest != SettingKey::kMost) {
      text += " to " + std::to_string(row.highest);
    }
    if (row.is_clamped) text += ", clamped";
    text += row.json == nullptr ? " | " : " | `" + std::string(row.json) + "`";
    text += " | " + sentence(row.meaning) + " |\n";
  }
  return text + "\n";
}

// Returns the document's table of commands.
std::string documentCommands(const Frame& frame) {
  std::string text = frame.table;
  forEachCommand([&](const cli::Command& command, const cli::Arguments& arguments) {
    cli::Arguments positional;
    for (const Argument& argument : arguments) {
      if (!argument.isOption()) positional.push_back(argument);
    }
    const Markup name = [](const Argument& argument) { return std::string(argument.name); };
    text += "| `" + std::string(command.name) + "`" + synopsis(positional, name) + " | " +
            translated(command.description) + " |\n";
  });
  return text + "\n";
}

// Expects this section in the file, from its heading up to the next heading of the same level.
void expectSection(const std::string& file, const std::string& section) {
  const std::string path = VORLATCH_DOCS + file;
  const std::string page = readAll(path);
  const std::string heading = section.substr(0, section.find('\n') + 1);
  const std::size_t begin = page.find("\n" + heading) + 1;
  ASSERT_NE(begin, 0U) << file << " has no heading " << heading;
  const std::string next = "\n" + heading.substr(0, heading.find(' ') + 1);
  const std::size_t end = page.find(next, begin) + 1;
  ASSERT_NE(end, 0U) << file << " ends with " << heading;
  if (std::getenv("VORLATCH_WRITE_LISTS") != nullptr) {
    writeAll(path, page.substr(0, begin) + section + page.substr(end));
  } else {
    EXPECT_EQ(page.substr(begin, end - begin), section) << "scripts/fix writes it";
  }
}

TEST(CommandLists, ManualPage) {
  expectSection("man/vorlatchctl.1.md", manualCommands(kEnglish));
}

TEST(CommandLists, Documents) {
  expectSection("vorlatchctl.md", documentCommands(kEnglish));
  expectSection("preferences.md", preferencesKeys());
}

TEST(CommandLists, ChineseDocuments) {
  control::setLanguage(control::Language::Chinese);
  const std::string manual = manualCommands(kChinese);
  const std::string table = documentCommands(kChinese);
  control::setLanguage(control::Language::English);
  expectSection("man/vorlatchctl.1.zh-CN.md", manual);
  expectSection("vorlatchctl.zh-CN.md", table);
}

}  // namespace
}  // namespace vorlatch::tests
