// Parses the user's arguments into a command to run.
#pragma once

#include <string>
#include <vector>

#include "cli/command.h"

namespace vorlatch::cli {

// Takes the words of a command line one by one. Options may stand anywhere; after "--", every word
// is a positional argument.
class ArgumentParser {
 public:
  ArgumentParser();
  ArgumentParser(const ArgumentParser&) = delete;
  ArgumentParser& operator=(const ArgumentParser&) = delete;
  ~ArgumentParser() = default;

  // Stores the word's value. Throws a Failure with kWrongUsage and advice if nothing takes the
  // word; the parser then accepts further words, which completion needs.
  void take(const std::string& word);

  // Returns the argument that takes the next word, if that is no option; null if nothing takes it
  // or it is the command.
  [[nodiscard]] const Argument* next() const;
  [[nodiscard]] bool awaitsCommand() const { return positionals_ == 0 && awaiting_ == nullptr; }
  [[nodiscard]] bool awaitsValue() const { return awaiting_ != nullptr; }
  [[nodiscard]] const Arguments& arguments() const { return arguments_; }

  // Returns what runs the command or, with --help, prints the help. Throws a Failure with
  // kWrongUsage if a word is missing.
  Run finish();
  [[nodiscard]] bool wantsJson() const { return wants_json_; }
  // Returns the language that the user asked for; empty if none.
  [[nodiscard]] const std::string& language() const { return language_; }

 private:
  void takeOption(const std::string& word);
  void takeShortOptions(const std::string& word);
  void takePositional(const std::string& word);
  [[nodiscard]] const Argument& optionNamed(const std::string& name) const;

  bool wants_json_ = false;
  bool wants_help_ = false;
  bool wants_version_ = false;
  std::string language_;
  Arguments arguments_;  // those of all commands and, once the command is known, its own
  const Command* command_ = nullptr;
  Run run_;
  std::size_t positionals_ = 0;         // how many were taken; the first is the command
  const Argument* awaiting_ = nullptr;  // the option whose value is the next word
  bool options_have_ended_ = false;
};

}  // namespace vorlatch::cli
