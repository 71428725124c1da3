#include "tests/oracle/reading.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace vorlatch::tests {
namespace {

constexpr std::string_view kBlanks = " \t\n\v\f\r";

std::int64_t longOf(double real) {
  if (std::isnan(real)) return 0;
  if (real >= std::ldexp(1, 63)) return std::numeric_limits<std::int64_t>::max();
  if (real <= -std::ldexp(1, 63)) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

std::int64_t longOf(const plist::Value& value) {
  if (const auto* boolean = value.as<bool>()) return *boolean ? 1 : 0;
  if (const auto* whole = value.as<std::int64_t>()) return *whole;
  if (value.as<std::uint64_t>() != nullptr) return std::numeric_limits<std::int64_t>::max();
  if (const auto* real = value.as<double>()) return longOf(*real);
  if (const auto* text = value.as<std::string>()) return std::strtoll(text->c_str(), nullptr, 10);
  return 0;
}

}  // namespace

std::int64_t longIn(const plist::Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry != dictionary.end() ? longOf(entry->second) : 0;
}

std::int32_t intIn(const plist::Dictionary& dictionary, std::string_view key) {
  using Range = std::numeric_limits<std::int32_t>;
  return static_cast<std::int32_t>(
      std::clamp<std::int64_t>(longIn(dictionary, key), Range::min(), Range::max()));
}

bool isTrue(const plist::Value& value) {
  const auto* text = value.as<std::string>();
  if (text == nullptr) {
    const auto* real = value.as<double>();
    return real != nullptr ? std::abs(*real) > 0 : longOf(value) != 0;
  }
  std::size_t at = std::min(text->find_first_not_of(kBlanks), text->size());
  if (at < text->size() && (text->at(at) == '-' || text->at(at) == '+')) ++at;
  at = text->find_first_not_of('0', at);
  return at != text->npos && std::string_view("123456789YyTt").find(text->at(at)) != text->npos;
}

bool isUtf8(std::string_view bytes) {
  while (!bytes.empty()) {
    const auto first = static_cast<unsigned char>(bytes[0]);
    std::size_t length = 1;
    if (first >= 0x80) length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if ((first >= 0x80 && first < 0xC2) || first > 0xF4 || bytes.size() < length) return false;
    const auto rest = bytes.substr(1, length - 1);
    if (!std::all_of(rest.begin(), rest.end(), [](char c) { return (c & 0xC0) == 0x80; })) {
      return false;
    }
    bytes.remove_prefix(length);
  }
  return true;
}

}  // namespace vorlatch::tests
