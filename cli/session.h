// The session that every command receives, and the functions that print its results.
#pragma once

#include "base/plist_value.h"
#include "cli/terminal.h"
#include "control/failure.h"
#include "control/setting_views.h"
#include "control/translation.h"

namespace vorlatch::cli {

using control::ExitStatus;
using control::Json;
using enum control::ExitStatus;
using control::failCouldNot;
using control::failWrongUsage;
using control::jsonOf;
using control::tr;
using control::translated;

// The version of the JSON that vorlatchctl prints. It grows when a key is removed or changes its
// meaning.
inline constexpr int kJsonVersion = 1;

struct Session {
  Terminal& terminal;
  bool wants_json = false;
  bool asked_for_english = false;  // with --lang en, not by the environment
};

// Returns the JSON text with `indent` blanks per level, or in one line if `indent` is negative.
// Writes control characters that a terminal obeys as \u escapes, and invalid UTF-8 as replacement
// characters.
std::string textOf(const Json& json, int indent);
// Return an object's text behind the version of its form: indented, or in one line as part of a
// stream of objects.
std::string whole(const Json& json);
std::string streamed(const Json& json);
// Prints an object, indented.
void print(const Session& session, const Json& json);
// Print one line to the standard output, or to the standard error, with control characters made
// visible.
void printLine(const Session& session, std::string_view line);
void printError(const Session& session, std::string_view line);
// Reports a failure on the standard error: as a line, or as an object if the user wants JSON.
void report(const Session& session, const control::Failure& failure);

// Returns a stored value as JSON: a date as {"date": seconds since 2001}, data as {"data":
// hexadecimal}.
Json jsonOf(const plist::Value& value);

}  // namespace vorlatch::cli
