#include "cli/arguments.h"

#include <charconv>
#include <utility>

#include "cli/help.h"
#include "control/nearest.h"

namespace vorlatch::cli {
namespace {

bool isFlag(const Argument& argument) {
  return std::holds_alternative<bool*>(argument.value);
}

// Stores a word as the argument's value.
struct Store {
  const Argument& argument;
  const std::string& word;

  void operator()(bool* value) const { *value = argument.flag_means; }
  void operator()(std::string* value) const { *value = word; }
  void operator()(std::optional<std::string>* value) const { *value = word; }
  void operator()(Words* value) const { value->push_back(word); }
  template <typename Number>
  void operator()(Number* value) const {
    int number = 0;
    const char* const end = word.data() + word.size();
    const auto read = std::from_chars(word.data(), end, number);
    const bool is_number = read.ec == std::errc{} && read.ptr == end;
    if (!is_number || number < argument.lowest || number > argument.highest) {
      failWrongUsage(tr("%s takes a number from %s to %s, not \"%s\"", argument.names().back(),
                        argument.lowest, argument.highest, word));
    }
    *value = static_cast<Number>(number);
  }
};

void store(const Argument& argument, const std::string& word) {
  std::visit(Store{argument, word}, argument.value);
}

}  // namespace

ArgumentParser::ArgumentParser()
    : arguments_{
          {.name = "--json",
           .description = english("print JSON, for programs"),
           .value = &wants_json_},
          {.name = "--lang",
           .description = english("the language: en or zh"),
           .value = &language_,
           .offer =
               [](const std::string&) {
                 return Words{"en", "zh"};
               }},
          {.name = "-h,--help", .description = english("print this help"), .value = &wants_help_},
          {.name = "--version",
           .description = english("print the version"),
           .value = &wants_version_}} {}

void ArgumentParser::take(const std::string& word) {
  if (awaiting_ != nullptr) {
    store(*std::exchange(awaiting_, nullptr), word);
  } else if (options_have_ended_ || word == "-" || !word.starts_with('-')) {
    takePositional(word);
  } else if (word == "--") {
    options_have_ended_ = true;
  } else if (word.starts_with("--")) {
    takeOption(word);
  } else {
    takeShortOptions(word);
  }
}

void ArgumentParser::takeOption(const std::string& word) {
  const std::size_t equals = word.find('=');
  const std::string name = word.substr(0, equals);
  const Argument& option = optionNamed(name);
  if (isFlag(option)) {
    if (equals != word.npos) failWrongUsage(tr("%s takes no value", name));
    store(option, {});
  } else if (equals == word.npos) {
    awaiting_ = &option;
  } else {
    store(option, word.substr(equals + 1));
  }
}

void ArgumentParser::takeShortOptions(const std::string& word) {
  for (std::size_t i = 1; i < word.size(); ++i) {
    const Argument& option = optionNamed({'-', word[i]});
    if (isFlag(option)) {
      store(option, {});
    } else if (i + 1 == word.size()) {
      awaiting_ = &option;
    } else {
      return store(option, word.substr(i + 1));
    }
  }
}

const Argument& ArgumentParser::optionNamed(const std::string& name) const {
  Words known;
  for (const Argument& argument : arguments_) {
    if (!argument.isOption()) continue;
    for (std::string& each : argument.names()) {
      if (each == name) return argument;
      if (each.starts_with("--")) known.push_back(std::move(each));
    }
  }
  failWrongUsage(tr("there is no option %s", name) +
                 (name.starts_with("--") ? control::suggestion(name, known) : ""));
}

void ArgumentParser::takePositional(const std::string& word) {
  const Argument* const argument = next();
  ++positionals_;
  if (positionals_ == 1) {
    command_ = findCommand(word);
    if (command_ == nullptr) {
      failWrongUsage(tr("there is no command %s", word) +
                     control::suggestion(word, commandNames()));
    }
    Arguments own;
    run_ = command_->prepare(own);
    arguments_.insert(arguments_.begin(), own.begin(), own.end());
  } else if (argument != nullptr) {
    store(*argument, word);
  } else {
    failWrongUsage(tr("nothing takes the argument \"%s\"", word));
  }
}

const Argument* ArgumentParser::next() const {
  if (awaiting_ != nullptr) return awaiting_;
  std::size_t place = 1;  // the command is at 0
  for (const Argument& argument : arguments_) {
    if (argument.isOption()) continue;
    // Words take all that follow.
    const bool is_last = std::holds_alternative<Words*>(argument.value);
    if (place == positionals_ || (is_last && place < positionals_)) return &argument;
    ++place;
  }
  return nullptr;
}

Run ArgumentParser::finish() {
  if (wants_version_) {
    return [](const Session& session) {
      printLine(session, std::string("vorlatchctl ") + VORLATCH_VERSION);
      return kDone;
    };
  }
  if (wants_help_) {
    return [command = command_, arguments = arguments_](const Session& session) {
      session.terminal.out(helpText(command, arguments, session.terminal.columns()));
      return kDone;
    };
  }
  if (awaiting_ != nullptr) failWrongUsage(tr("%s needs a value", awaiting_->names().back()));
  if (command_ == nullptr) failWrongUsage(tr("a command is needed; vorlatchctl --help names them"));
  std::size_t place = 1;
  for (const Argument& argument : arguments_) {
    if (argument.isOption()) continue;
    if (argument.is_required && place >= positionals_) {
      failWrongUsage(
          tr("%s is missing; vorlatchctl %s --help says more", argument.name, command_->name));
    }
    ++place;
  }
  return run_;
}

}  // namespace vorlatch::cli
