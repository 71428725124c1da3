// The texts that people read, in the language that they chose. A text's key is its English form;
// po/zh_CN.po has the Chinese one, which is compiled in.
#pragma once

#include <array>
#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>

#include "base/translatable.h"

namespace vorlatch::control {

enum class Language { English, Chinese };

// Sets the language of all texts. English until then.
void setLanguage(Language language);
Language language();

// Returns the text in the language that was set, or unchanged if it has no translation.
const char* translated(const char* english_text);

// A text with one %s per argument, checked at compile time. A translation may change the order of
// the arguments: %2$s.
template <std::size_t Arguments>
class TextFormat {
 public:
  consteval TextFormat(const char* text) : text_(text) {
    std::size_t fields = 0;
    for (const char* c = text; *c != '\0'; ++c) {
      if (*c != '%') continue;
      ++c;
      if (*c == 's') ++fields;
      if (*c != 's' && *c != '%') throw "a text has only fields %s";
    }
    if (fields != Arguments) throw "a text has one field per argument";
  }
  [[nodiscard]] const char* text() const { return text_; }

 private:
  const char* text_;
};

// Returns a copy of the format with the arguments in place of its fields; %% is a percent sign.
std::string filled(const char* format, const std::string* arguments, std::size_t count);

inline std::string textOfArgument(std::string_view argument) {
  return std::string(argument);
}
template <std::integral Number>
std::string textOfArgument(Number number) {
  return std::to_string(number);
}

// Returns the translated text with the arguments, which are texts or integers, in its fields.
template <typename... Arguments>
std::string tr(TextFormat<sizeof...(Arguments)> format, const Arguments&... arguments) {
  const std::array<std::string, sizeof...(Arguments)> all{textOfArgument(arguments)...};
  return filled(translated(format.text()), all.data(), all.size());
}

}  // namespace vorlatch::control
