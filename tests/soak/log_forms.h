// The log's lines by the forms that docs/log.md gives them.
#pragma once

#include <regex.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "tests/blackbox/installation.h"
#include "tests/support/files.h"

namespace vorlatch {

// The regular expression of a form. The document itself puts a backslash before each bar. A text
// in place of %s may begin with a bracket, as "[内核] 成功" does; a later bracket would be that of
// another line's stamp.
inline std::string expressionOf(std::string form) {
  const std::string number = "[-.0-9]+";
  for (const auto& [part, expression] : {std::pair<std::string, std::string>{"[", "\\["},
                                         {"(", "\\("},
                                         {")", "\\)"},
                                         {"%s", "(\\[内核)?[^[]*"},
                                         {"%d", number},
                                         {"%.1f", number}}) {
    for (std::size_t at = 0; (at = form.find(part, at)) != form.npos; at += expression.size()) {
      form.replace(at, part.size(), expression);
    }
  }
  return form;
}

// Matches a whole line: its stamp, and one of the forms, which are the first column of the
// document's tables. The heads of the columns are not in backticks.
inline regex_t makeLineExpression() {
  const std::string document = tests::readAll(VORLATCH_LOG_DOCUMENT);
  constexpr std::string_view kCellBegins = "\n| `";
  std::string forms;
  int count = 0;
  for (std::size_t at = 0; (at = document.find(kCellBegins, at)) != document.npos; ++count) {
    at += kCellBegins.size();
    forms += '|' + expressionOf(document.substr(at, document.find('`', at) - at));
  }
  EXPECT_GT(count, 30);
  const std::string stamp = R"(\[[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\] )";
  const std::string whole = '^' + stamp + '(' + forms.substr(1) + ")$";
  regex_t expression{};
  EXPECT_EQ(regcomp(&expression, whole.c_str(), REG_EXTENDED | REG_NOSUB), 0) << whole;
  return expression;
}

// The lines of a log that are not one whole message with its stamp: torn apart, mixed with another
// one, unknown to the document, or without their end.
inline Lines brokenLines(std::string_view log) {
  static const regex_t& form = *new regex_t(makeLineExpression());
  Lines broken;
  while (!log.empty()) {
    const std::size_t length = std::min(log.find('\n'), log.size());
    regmatch_t line{.rm_so = 0, .rm_eo = static_cast<regoff_t>(length)};
    if (length == log.size() || regexec(&form, log.data(), 1, &line, REG_STARTEND) != 0) {
      broken.emplace_back(log.substr(0, length));
    }
    log.remove_prefix(std::min(length + 1, log.size()));
  }
  return broken;
}

}  // namespace vorlatch
