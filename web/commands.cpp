#include "web/commands.h"

#include <algorithm>
#include <ctime>
#include <exception>
#include <limits>
#include <string_view>

#include "cli/command_line.h"
#include "cli/session.h"

namespace vorlatch::web {
namespace {

constexpr std::size_t kAnyNumber = std::numeric_limits<std::size_t>::max();
// Longer output is not kept. The longest are thousands of lines of the log.
constexpr std::size_t kOutputBytesMax = std::size_t{4} << 20U;

enum class Takes { Nothing, Text, SmallNumber };

struct AllowedOption {
  std::string_view name;
  Takes takes = Takes::Nothing;
};

struct AllowedCommand {
  std::string_view name;
  std::size_t most_words;  // that are not options
  std::vector<AllowedOption> options = {};
};

const std::vector<AllowedCommand>& allowedCommands() {
  static const auto& commands = *new std::vector<AllowedCommand>{
      {"status", kAnyNumber},
      {"list", 0},
      {"show", 1},
      {"plan", 1},
      {"match", 1},
      {"ps", 1, {{"--sort", Takes::Text}}},
      {"check", 0, {{"--no-processes"}}},
      {"log",
       0,
       {{"-n", Takes::SmallNumber},
        {"--lines", Takes::SmallNumber},
        {"--target", Takes::Text},
        {"--category", Takes::Text},
        {"--english"}}},
      {"bands", 0},
      {"doctor", 0},
      {"kills", 1, {{"--since", Takes::Text}, {"--report", Takes::Text}}},
      {"set", kAnyNumber, {{"--force"}, {"--dry-run"}}},
      {"unset", kAnyNumber, {{"--dry-run"}}},
      {"remove", kAnyNumber, {{"--dry-run"}}},
      {"enable", 0, {{"--dry-run"}}},
      {"disable", 0, {{"--dry-run"}}},
      {"preset", 0, {{"--replace"}, {"--dry-run"}}},
      {"undo", 1, {{"--list"}, {"--dry-run"}}},
      {"apply", kAnyNumber, {{"--again"}}},
      {"profile", 2, {{"--force"}, {"--dry-run"}}},
      {"export", 0},
  };
  return commands;
}

// Numbers of lines, which the server keeps in memory.
bool isSmallNumber(std::string_view text) {
  constexpr std::size_t kMostDigits = 4;
  return !text.empty() && text.size() <= kMostDigits &&
         text.find_first_not_of("0123456789") == text.npos;
}

bool isAllowedValue(const AllowedOption& option, std::string_view value) {
  return option.takes == Takes::Text || isSmallNumber(value);
}

// Follows vorlatchctl's own rules for words, but knows only options that are written out.
class Judge {
 public:
  explicit Judge(const AllowedCommand& command) : command_(command) {}

  bool admits(const std::string& word) {
    if (awaiting_ != nullptr) return isAllowedValue(*std::exchange(awaiting_, nullptr), word);
    const bool is_option = !options_have_ended_ && word.size() > 1 && word.starts_with('-');
    if (!is_option) return ++words_ <= command_.most_words;
    if (word == "--") return options_have_ended_ = true;
    return admitsOption(word);
  }

 private:
  bool admitsOption(const std::string& word) {
    const std::size_t equals = std::min(word.find('='), word.size());
    const std::string_view name = std::string_view(word).substr(0, equals);
    for (const AllowedOption& option : command_.options) {
      if (option.name != name) continue;
      if (equals == word.size()) {
        if (option.takes != Takes::Nothing) awaiting_ = &option;
        return true;
      }
      // A short option takes what follows it, with the sign.
      return option.takes != Takes::Nothing && name.starts_with("--") &&
             isAllowedValue(option, std::string_view(word).substr(equals + 1));
    }
    return false;
  }

  const AllowedCommand& command_;
  const AllowedOption* awaiting_ = nullptr;
  std::size_t words_ = 0;
  bool options_have_ended_ = false;
};

// What a command prints, up to a bound.
struct Captured {
  std::string text;
  bool is_too_long = false;

  void add(std::string_view more) {
    is_too_long = is_too_long || text.size() + more.size() > kOutputBytesMax;
    if (!is_too_long) text += more;
  }
};

// Returns JSON without its line breaks and indentation. Within a text, JSON has no line breaks.
std::string inOneLine(std::string_view json) {
  std::string line;
  line.reserve(json.size());
  while (!json.empty()) {
    const std::size_t end = std::min(json.find('\n'), json.size());
    line += json.substr(0, end);
    json.remove_prefix(end);
    json.remove_prefix(std::min(json.find_first_not_of("\n "), json.size()));
  }
  return line;
}

// Returns a list of the objects, of which each is a line.
std::string listOf(std::string lines) {
  if (!lines.empty()) lines.pop_back();
  std::replace(lines.begin(), lines.end(), '\n', ',');
  return "[" + lines + "]";
}

std::string outputOf(const Words& words, std::string printed) {
  if (words.front() == "log") return listOf(std::move(printed));
  return printed.empty() ? "null" : inOneLine(printed);
}

std::string errorOf(const std::string& printed) {
  if (printed.empty()) return "null";
  const control::Json report = control::Json::parse(printed, nullptr, false);
  if (report.is_object() && report.contains("error")) return cli::textOf(report["error"], -1);
  return cli::textOf({{"code", "failed"}, {"message", printed}}, -1);
}

}  // namespace

bool isAllowed(const Words& words) {
  if (words.empty()) return false;
  for (const AllowedCommand& command : allowedCommands()) {
    if (command.name != words.front()) continue;
    Judge judge(command);
    return std::all_of(words.begin() + 1, words.end(),
                       [&judge](const std::string& word) { return judge.admits(word); });
  }
  return false;
}

CommandResult runCommand(const Words& words, control::Language language) {
  Captured out;
  Captured err;
  cli::Terminal terminal;
  terminal.out = [&out](std::string_view text) { out.add(text); };
  terminal.err = [&err](std::string_view text) { err.add(text); };
  terminal.wait = [](std::chrono::milliseconds) {};
  terminal.wall_seconds = [] { return std::int64_t{std::time(nullptr)}; };
  Words line{"--json", "--lang", language == control::Language::Chinese ? "zh" : "en"};
  line.insert(line.end(), words.begin(), words.end());
  int status = control::kCouldNot;
  try {
    status = cli::runCommandLine(line, terminal);
  } catch (const std::exception& unforeseen) {
    // One command must not end the server of all pages.
    err.add(unforeseen.what());
  }
  if (out.is_too_long) {
    const control::Json error{{"code", "too-long"},
                              {"message", control::tr("the output is too long for the page")}};
    return {.status = control::kCouldNot, .output = "null", .error = cli::textOf(error, -1)};
  }
  return {
      .status = status, .output = outputOf(words, std::move(out.text)), .error = errorOf(err.text)};
}

}  // namespace vorlatch::web
