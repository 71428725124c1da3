#include "cli/arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <memory>
#include <type_traits>

#include "control/nearest.h"

namespace vorlatch::cli {
namespace {

constexpr const char* kDescription =
    "Edits the preferences of the Vorlatch daemon, asks what it holds, and explains.";
constexpr const char* kFooter = R"(Examples:
  vorlatchctl status
  vorlatchctl set com.tencent.xin JetsamPriority=home NiceValue=-5
  vorlatchctl match backboardd
  vorlatchctl log -f --target kbd

A target is an app's bundle identifier or a system daemon's process name.
Exit status: 0 done, 1 a finding, 2 wrong usage, 3 could not.)";

// CLI11 parses an argument in square brackets as a list. This control character in front turns that
// off, and is removed before the value is stored.
constexpr char kNoList = '\x1f';

void protectBrackets(std::vector<std::string>& words) {
  for (std::string& word : words) {
    if (word.starts_with('[')) word.insert(word.begin(), kNoList);
  }
}

const CLI::Validator& unprotectBracket() {
  static const CLI::Validator unprotect(
      [](std::string& word) {
        if (word.starts_with(kNoList)) word.erase(0, 1);
        return std::string();
      },
      "");
  return unprotect;
}

// Adds an argument to the parser according to the type of its value.
struct AddTo {
  CLI::App& app;
  const Argument& argument;

  CLI::Option* operator()(bool* value) const {
    return app.add_flag_callback(
        argument.name, [value, means = argument.flag_means] { *value = means; },
        argument.description);
  }
  template <typename Value>
  CLI::Option* operator()(Value* value) const {
    CLI::Option* option = app.add_option(argument.name, *value, argument.description);
    if constexpr (std::is_integral_v<Value>) {
      option->check(CLI::Range(argument.lowest, argument.highest))->capture_default_str();
    } else {
      option->transform(unprotectBracket());
    }
    return option;
  }
};

void add(CLI::App& app, const Arguments& arguments) {
  for (const Argument& argument : arguments) {
    std::visit(AddTo{app, argument}, argument.value)->required(argument.is_required);
  }
}

// The parser and the work of the selected command; the request keeps both alive.
struct Parsed {
  CLI::App app{kDescription, "vorlatchctl"};
  bool wants_json = false;
  Run run;
};

// Reports an unknown or missing command with advice, which CLI11's own message lacks.
void checkCommandName(const std::vector<std::string>& arguments) {
  for (const std::string& argument : arguments) {
    if (argument.starts_with('-')) continue;
    if (findCommand(argument) == nullptr) {
      failWrongUsage("there is no command " + argument +
                     control::suggestion(argument, commandNames()));
    }
    return;
  }
  const auto asks_for_help = [](const std::string& argument) {
    return argument == "-h" || argument == "--help";
  };
  if (std::none_of(arguments.begin(), arguments.end(), asks_for_help)) {
    failWrongUsage("a command is needed; vorlatchctl --help names them");
  }
}

}  // namespace

Arguments commonArguments(bool& wants_json) {
  return {
      {.name = "--json", .description = "print JSON, for programs", .value = &wants_json},
  };
}

Request parseArguments(std::vector<std::string> arguments) {
  checkCommandName(arguments);
  const auto parsed = std::make_shared<Parsed>();
  parsed->app.require_subcommand(1);
  parsed->app.footer(kFooter);
  add(parsed->app, commonArguments(parsed->wants_json));
  for (const Command* command : commands()) {
    CLI::App* parser = parsed->app.add_subcommand(command->name, command->description);
    parser->footer(std::string("Examples:\n") + command->examples);
    parser->fallthrough();
    if (command->place == 0) parser->group("");
    Arguments own;
    parser->callback([parsed = parsed.get(), run = command->prepare(own)] { parsed->run = run; });
    add(*parser, own);
  }
  try {
    protectBrackets(arguments);
    std::reverse(arguments.begin(), arguments.end());  // CLI11 expects this order
    parsed->app.parse(std::move(arguments));
  } catch (const CLI::Success&) {  // --help, of one command or of all
    return {.wants_json = false, .run = [shown = parsed->app.help()](const Session& session) {
              session.terminal.out(shown);
              return kDone;
            }};
  } catch (const CLI::ParseError& error) {
    failWrongUsage(std::string(error.what()) + " (see --help)");
  }
  return {.wants_json = parsed->wants_json,
          .run = [parsed](const Session& session) { return parsed->run(session); }};
}

}  // namespace vorlatch::cli
