// What the server answers to one request.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "control/translation.h"

namespace vorlatch::web {

struct Answer {
  int status = 200;
  const char* type = "application/json";
  std::string body = {};
  std::string_view file = {};  // a body that is compiled in, instead of `body`
  std::vector<std::pair<const char*, std::string>> headers = {};
  const char* caching = "no-store";  // for Cache-Control
  // The language of the events that the connection carries from now on, if the request asked for
  // them.
  std::optional<control::Language> listens = {};

  [[nodiscard]] std::string_view content() const { return file.empty() ? body : file; }
};

// Returns an error for the page: {"error": {"code": …, "message": …}}.
Answer errorAnswer(int status, const char* code, const std::string& message);

// Returns an error for a request that could not be read.
Answer badRequestAnswer(int status);

// Returns the status line and the headers, with those that keep other pages and other programs'
// scripts out.
std::string headOf(const Answer& answer, bool keeps_connection);

}  // namespace vorlatch::web
