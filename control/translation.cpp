#include "control/translation.h"

#include <cstdint>
#include <cstring>

namespace vorlatch::control {

// The bytes of po/zh_CN.po as msgfmt compiles them, with a NUL behind; see cmake/embed.cmake.
extern const unsigned char kChineseCatalogue[];

namespace {

Language chosen = Language::English;

// A compiled catalogue of gettext: a table of the keys in ascending order, and a table of the
// translations. An entry of a table is a length and an offset; every text ends with a NUL.
class Catalogue {
 public:
  explicit Catalogue(const unsigned char* bytes) : bytes_(bytes) {}

  [[nodiscard]] const char* find(std::string_view key) const {
    constexpr std::size_t kCountAt = 8;
    constexpr std::size_t kKeysAt = 12;
    constexpr std::size_t kTranslationsAt = 16;
    std::uint32_t first = 0;
    std::uint32_t end = numberAt(kCountAt);
    while (first < end) {
      const std::uint32_t middle = first + (end - first) / 2;
      const int order = key.compare(entry(numberAt(kKeysAt), middle));
      if (order == 0) return entry(numberAt(kTranslationsAt), middle);
      (order < 0 ? end : first) = order < 0 ? middle : middle + 1;
    }
    return nullptr;
  }

 private:
  [[nodiscard]] std::uint32_t numberAt(std::size_t offset) const {
    std::uint32_t number = 0;
    std::memcpy(&number, bytes_ + offset, sizeof number);
    return number;
  }
  [[nodiscard]] const char* entry(std::size_t table, std::uint32_t index) const {
    constexpr std::size_t kEntryBytes = 8;
    const std::uint32_t offset = numberAt(table + index * kEntryBytes + 4);
    return reinterpret_cast<const char*>(bytes_ + offset);
  }

  const unsigned char* const bytes_;
};

}  // namespace

void setLanguage(Language language) {
  chosen = language;
}

Language language() {
  return chosen;
}

const char* translated(const char* english_text) {
  if (chosen == Language::English || *english_text == '\0') return english_text;
  const char* translation = Catalogue(kChineseCatalogue).find(english_text);
  return translation != nullptr ? translation : english_text;
}

std::string filled(const char* format, const std::string* arguments, std::size_t count) {
  std::string text;
  std::size_t next = 0;
  for (const char* c = format; *c != '\0'; ++c) {
    if (*c != '%') {
      text += *c;
      continue;
    }
    ++c;
    if (*c == '%') {
      text += '%';
      continue;
    }
    std::size_t index = next++;
    if (*c >= '1' && *c <= '9') {
      index = static_cast<std::size_t>(*c - '1');
      c += 2;  // the digit and the dollar sign
    }
    if (index < count) text += arguments[index];
  }
  return text;
}

}  // namespace vorlatch::control
