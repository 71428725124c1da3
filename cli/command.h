// The commands of vorlatchctl. Each file in cli/commands/ contains one command (name, help,
// arguments and work) and registers it by defining a RegisteredCommand.
#pragma once

#include <cstddef>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "cli/session.h"

namespace vorlatch::cli {

using Words = std::vector<std::string>;

// Returns the candidates for completing an argument, unfiltered.
using Offer = Words (*)(const std::string& unfinished);

// One argument: a positional one with a name in capitals, or an option whose names begin with
// dashes and are separated by commas ("-n,--lines").
struct Argument {
  const char* name;
  const char* description;
  // Receives the value. A flag sets its bool to `flag_means`; Words receives all remaining
  // arguments.
  std::variant<bool*, int*, std::optional<std::size_t>*, std::string*, std::optional<std::string>*,
               Words*>
      value;
  Offer offer = nullptr;
  bool is_required = false;
  bool flag_means = true;
  int lowest = 0;  // the range of a number
  int highest = std::numeric_limits<int>::max();

  [[nodiscard]] bool isOption() const { return name[0] == '-'; }
  // Returns each name: "-n,--lines" has two.
  [[nodiscard]] Words names() const;
};

using Arguments = std::vector<Argument>;

// The work of a command. Returns its exit status or throws a Failure.
using Run = std::function<ExitStatus(const Session&)>;

// A word and what it means, in a list of the help.
struct Term {
  std::string word;
  std::string meaning;
};

struct Command {
  const char* name;
  const char* description;
  const char* examples;  // one per line
  int place;             // position in the list of commands; 0 hides the command from users
  // Fills in the arguments, and returns the work to run after they were parsed.
  Run (*prepare)(Arguments& arguments);
  // Returns the keys that the help explains; null if there are none.
  std::vector<Term> (*keys)() = nullptr;
};

// Adds a command to the list during static initialisation.
class RegisteredCommand {
 public:
  explicit RegisteredCommand(const Command& command) noexcept : command_(command), next_(first()) {
    first() = this;
  }

 private:
  friend std::vector<const Command*> commands();
  static const RegisteredCommand*& first() noexcept;

  const Command command_;
  const RegisteredCommand* const next_;
};

// Returns every command, sorted by place.
std::vector<const Command*> commands();

// Returns null for an unknown name.
const Command* findCommand(const std::string& name);

// Returns the names of the commands that users see.
Words commandNames();

}  // namespace vorlatch::cli
