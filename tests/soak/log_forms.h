// The log's lines by the forms that docs/log.md gives them.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tests/blackbox/installation.h"
#include "tests/support/files.h"
#include "tests/support/stamp.h"

namespace vorlatch {

// The first column of the document's tables; the heads of the columns are not in backticks.
inline Lines readForms() {
  const std::string document = tests::readAll(VORLATCH_LOG_DOCUMENT);
  Lines forms;
  constexpr std::string_view kCellBegins = "\n| `";
  std::size_t at = 0;
  while ((at = document.find(kCellBegins, at)) != document.npos) {
    at += kCellBegins.size();
    std::string form = document.substr(at, document.find('`', at) - at);
    while (form.find("\\|") != form.npos) form.erase(form.find("\\|"), 1);
    forms.push_back(form);
  }
  EXPECT_GT(forms.size(), 30U);
  return forms;
}

inline bool takeNumber(std::string_view& text) {
  const std::size_t length = std::min(text.find_first_not_of("-.0123456789"), text.size());
  text.remove_prefix(length);
  return length > 0;
}

inline bool fits(std::string_view text, std::string_view form);

// What stands for %s may begin with brackets, as "[内核] 成功" does, and holds none further on:
// they would be those of another line's stamp.
inline bool fitsBehindText(std::string_view text, std::string_view rest_of_form) {
  std::size_t length = 0;
  if (text.starts_with("[内核")) length = std::min(text.find(']'), text.size());
  for (;; ++length) {
    if (fits(text.substr(length), rest_of_form)) return true;
    if (length == text.size() || text[length] == '[') return false;
  }
}

inline bool fits(std::string_view text, std::string_view form) {
  while (!form.empty()) {
    if (form.starts_with("%s")) return fitsBehindText(text, form.substr(2));
    const std::size_t field = form.starts_with("%d") ? 2 : form.starts_with("%.1f") ? 4 : 0;
    if (field != 0) {
      if (!takeNumber(text)) return false;
      form.remove_prefix(field);
    } else {
      if (text.empty() || text[0] != form[0]) return false;
      text.remove_prefix(1);
      form.remove_prefix(1);
    }
  }
  return text.empty();
}

// The lines of a log that are not one whole message with its stamp: torn apart, mixed with another
// one, unknown to the document, or without their end.
inline std::vector<std::string> brokenLines(std::string_view log) {
  static const Lines& forms = *new Lines(readForms());
  std::vector<std::string> broken;
  while (!log.empty()) {
    const std::size_t end = log.find('\n');
    const std::string line(log.substr(0, end));
    log.remove_prefix(end == log.npos ? log.size() : end + 1);
    const bool is_whole = end != log.npos && isStamped(line);
    const std::string_view text =
        std::string_view(line).substr(std::min(line.size(), kStampLength));
    if (!is_whole || std::none_of(forms.begin(), forms.end(),
                                  [&](const std::string& form) { return fits(text, form); })) {
      broken.push_back(line);
    }
  }
  return broken;
}

}  // namespace vorlatch
