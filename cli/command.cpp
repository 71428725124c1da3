#include "cli/command.h"

#include <algorithm>

namespace vorlatch::cli {

Words Argument::names() const {
  Words all{""};
  for (const char* c = name; *c != '\0'; ++c) {
    if (*c == ',') {
      all.emplace_back();
    } else {
      all.back() += *c;
    }
  }
  return all;
}

const RegisteredCommand*& RegisteredCommand::first() noexcept {
  static const RegisteredCommand* registered = nullptr;
  return registered;
}

std::vector<const Command*> commands() {
  std::vector<const Command*> all;
  for (const RegisteredCommand* each = RegisteredCommand::first(); each != nullptr;
       each = each->next_) {
    all.push_back(&each->command_);
  }
  std::sort(all.begin(), all.end(),
            [](const Command* a, const Command* b) { return a->place < b->place; });
  return all;
}

const Command* findCommand(const std::string& name) {
  for (const Command* command : commands()) {
    if (command->name == name) return command;
  }
  return nullptr;
}

Words commandNames() {
  Words names;
  for (const Command* command : commands()) {
    if (command->place > 0) names.emplace_back(command->name);
  }
  return names;
}

}  // namespace vorlatch::cli
