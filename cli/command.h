// A command of vorlatchctl. Each is one file in cli/commands/, which holds its name, its help, what
// it takes and what it does, and registers itself by defining a RegisteredCommand.
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

// Gives the words that may stand in an argument's place, for completion.
using Offer = Words (*)(const std::string& unfinished);

// One argument: a positional one, whose name is in capitals, or an option, whose names begin with
// dashes and stand in one string ("-n,--lines").
struct Argument {
  const char* name;
  const char* description;
  // Where its value goes. A flag sets its bool to `flag_means`; Words takes all that are left.
  std::variant<bool*, int*, std::size_t*, std::string*, std::optional<std::string>*, Words*> value;
  Offer offer = nullptr;
  bool is_required = false;
  bool flag_means = true;
  int lowest = 0;  // of a number
  int highest = std::numeric_limits<int>::max();
};

using Arguments = std::vector<Argument>;

// What a command does; it gives its exit status or throws a Failure.
using Run = std::function<ExitStatus(const Session&)>;

struct Command {
  const char* name;
  const char* description;
  const char* examples;  // a line each
  int place;             // in the list of commands, the lowest first; 0 hides it from users
  // Says what the command takes, and returns the work for when the arguments have their values.
  Run (*prepare)(Arguments& arguments);
};

// Adds a command to the list while the program is loaded.
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

// Every command in its place.
std::vector<const Command*> commands();

// Null for an unknown name.
const Command* findCommand(const std::string& name);

// Those that users are shown.
Words commandNames();

}  // namespace vorlatch::cli
