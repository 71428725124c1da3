// The messages of the daemon's log. Their tables are those of docs/log.md; see
// cmake/log_messages.cmake.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "control/log_reader.h"

namespace vorlatch::control {

struct LogMessage {
  const char* code;      // stable, for programs
  const char* category;  // without brackets; empty if the message has none
  const char* form;      // the text behind the category, with fields %d, %.1f and %s
  const char* english;   // the text with the same fields; empty: the same text
  bool is_of_target;     // belongs to the block of one target
};

struct LogCategory {
  const char* name;  // as the daemon writes it
  const char* english;
};

// A text that the daemon writes in place of a %s. In the messages without such words, %s is the
// name of a target.
struct LogWord {
  const char* code;  // of the message
  const char* text;
  const char* english;
};

std::span<const LogMessage> logMessages();
std::span<const LogCategory> logCategories();
std::span<const LogWord> logWords();

// The message that a line is, and the texts in place of its fields, which point into the line.
struct RecognisedLine {
  const LogMessage* message;  // never null
  std::vector<std::string_view> fields;

  // Returns the name of the target; empty if the message names none.
  [[nodiscard]] std::optional<std::string_view> target() const;
};

// Returns the message with the longest constant text that the line can be; empty if there is none.
std::optional<RecognisedLine> recognised(const LogLine& line);

// Returns the line with category and text in English; unchanged if it is no known message.
LogLine inEnglish(const LogLine& line);

}  // namespace vorlatch::control
