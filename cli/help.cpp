#include "cli/help.h"

#include <algorithm>

#include "base/display_text.h"

namespace vorlatch::cli {
namespace {

constexpr std::size_t kUsualColumns = 80;
// On a narrower screen an explanation stands below its term.
constexpr std::size_t kNarrowColumns = 60;
constexpr std::size_t kWidestTerm = 22;

class HelpText {
 public:
  explicit HelpText(std::size_t columns) : columns_(columns != 0 ? columns : kUsualColumns) {}

  void add(const std::string& paragraph) { addWrapped("", paragraph, 0); }
  void add(const std::string& heading, const std::vector<Term>& entries) {
    if (entries.empty()) return;
    text_ += "\n" + heading + "\n";
    std::size_t widest = 0;
    for (const Term& entry : entries) widest = std::max(widest, displayWidth(entry.word));
    const bool is_narrow = columns_ < kNarrowColumns || widest > kWidestTerm;
    for (const Term& entry : entries) {
      std::string begin = "  " + entry.word;
      if (is_narrow) {
        text_ += begin + "\n";
        addWrapped("      ", entry.meaning, 6);
      } else {
        begin.append(widest + 4 - displayWidth(begin), ' ');
        addWrapped(begin, entry.meaning, widest + 4);
      }
    }
  }
  void addLine(const std::string& line) { text_ += line + "\n"; }

  [[nodiscard]] const std::string& text() const { return text_; }

 private:
  // Adds `begin` and the paragraph, whose further lines begin below its first.
  void addWrapped(const std::string& begin, const std::string& paragraph, std::size_t indent) {
    std::string before = begin;
    for (const std::string& line : wrappedToWidth(paragraph, columns_ - indent)) {
      text_ += before + line + "\n";
      before = std::string(indent, ' ');
    }
  }

  const std::size_t columns_;
  std::string text_;
};

// Returns an option with the kind of its value: "-n, --lines N".
std::string termOf(const Argument& argument) {
  std::string term;
  for (const std::string& name : argument.names()) term += (term.empty() ? "" : ", ") + name;
  if (!argument.isOption() || std::holds_alternative<bool*>(argument.value)) return term;
  const bool is_number = std::holds_alternative<int*>(argument.value) ||
                         std::holds_alternative<std::optional<std::size_t>*>(argument.value);
  return term + (is_number ? " N" : " TEXT");
}

std::string usageOf(const Command& command, const Arguments& arguments) {
  std::string usage = std::string("vorlatchctl ") + command.name;
  for (const Argument& argument : arguments) {
    if (argument.isOption()) continue;
    std::string word = argument.name;
    if (std::holds_alternative<Words*>(argument.value)) word += "...";
    usage += argument.is_required ? " " + word : " [" + word + "]";
  }
  return usage + " [OPTION...]";
}

void addArguments(HelpText& help, const Arguments& arguments) {
  std::vector<Term> positionals;
  std::vector<Term> options;
  for (const Argument& argument : arguments) {
    auto& list = argument.isOption() ? options : positionals;
    list.push_back({termOf(argument), translated(argument.description)});
  }
  help.add(tr("Arguments:"), positionals);
  help.add(tr("Options:"), options);
}

}  // namespace

std::string helpText(const Command* command, const Arguments& arguments, std::size_t columns) {
  HelpText help(columns);
  if (command != nullptr) {
    help.add(usageOf(*command, arguments));
    help.add(translated(command->description));
    addArguments(help, arguments);
    if (command->keys != nullptr) help.add(tr("Keys:"), command->keys());
    help.addLine("\n" + tr("Examples:") + "\n" + command->examples);
    return help.text();
  }
  help.add(tr("vorlatchctl COMMAND [ARGUMENT...]"));
  help.add(tr("Edits the preferences of the Vorlatch daemon, asks what it holds, and explains."));
  std::vector<Term> entries;
  for (const Command* each : commands()) {
    if (each->place > 0) entries.push_back({each->name, translated(each->description)});
  }
  help.add(tr("Commands:"), entries);
  addArguments(help, arguments);
  help.addLine("\n" + tr("Examples:") +
               "\n"
               "  vorlatchctl status\n"
               "  vorlatchctl set com.tencent.xin JetsamPriority=home NiceValue=-5\n"
               "  vorlatchctl match backboardd\n"
               "  vorlatchctl log -f --target kbd\n");
  help.add(tr("A target is an app's bundle identifier or a system daemon's process name."));
  help.add(tr("Exit status: 0 done, 1 a finding, 2 wrong usage, 3 could not."));
  return help.text();
}

}  // namespace vorlatch::cli
