// What every command is given, and how it answers.
#pragma once

#include "base/plist_value.h"
#include "cli/terminal.h"
#include "control/failure.h"
#include "control/setting_views.h"

namespace vorlatch::cli {

using control::ExitStatus;
using control::Json;
using enum control::ExitStatus;
using control::failCouldNot;
using control::failWrongUsage;
using control::jsonOf;

struct Session {
  Terminal& terminal;
  bool wants_json = false;
};

// The value's text, with so many blanks a level or, below zero, in one line. What would command a
// terminal is written as \u escapes, and what is not UTF-8 as replacement characters.
std::string textOf(const Json& json, int indent);
// The same and a line end.
void print(const Session& session, const Json& json);
// One line that people and logs may see, cleaned of control characters.
void printLine(const Session& session, std::string_view line);
void printError(const Session& session, std::string_view line);

// A stored value as JSON; a date as {"date": seconds since 2001}, data as {"data": hexadecimal}.
Json jsonOf(const plist::Value& value);

}  // namespace vorlatch::cli
