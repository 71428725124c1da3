#include "platform/plist_value.h"

#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

namespace vorlatch::plist {
namespace {

// What booleans, integers and reals have in common. The long double of the device has the width of
// a double, so integers are compared as integers and only a real is compared as a real.
struct Number {
  std::int64_t whole = 0;         // valid unless is_real or above_int64
  std::uint64_t above_int64 = 0;  // not 0: the number is this one
  double real = 0;
  bool is_real = false;
};

std::optional<Number> numberOf(const Value& value) {
  if (const auto* boolean = value.as<bool>()) return Number{.whole = *boolean ? 1 : 0};
  if (const auto* whole = value.as<std::int64_t>()) return Number{.whole = *whole};
  if (const auto* large = value.as<std::uint64_t>()) return Number{.above_int64 = *large};
  if (const auto* real = value.as<double>()) return Number{.real = *real, .is_real = true};
  return std::nullopt;
}

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

// A real that is a whole number within 64 bits becomes that integer; any other stays a real.
Number normalized(const Number& number) {
  if (!number.is_real || std::trunc(number.real) != number.real) return number;
  if (number.real >= -kTwoTo63 && number.real < kTwoTo63) {
    return Number{.whole = static_cast<std::int64_t>(number.real)};
  }
  if (number.real >= kTwoTo63 && number.real < kTwoTo64) {
    return Number{.above_int64 = static_cast<std::uint64_t>(number.real)};
  }
  return number;
}

bool equalReals(double a, double b) {
  return a == b || (std::isnan(a) && std::isnan(b));
}

bool equalNumbers(const Number& first, const Number& second) {
  const Number a = normalized(first);
  const Number b = normalized(second);
  if (a.is_real != b.is_real) return false;
  if (a.is_real) return equalReals(a.real, b.real);
  return a.whole == b.whole && a.above_int64 == b.above_int64;
}

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Skips leading blanks and one sign; tells whether the sign was a minus.
bool skipBlanksAndSign(std::string_view& text) {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  if (text.empty() || (text.front() != '-' && text.front() != '+')) return false;
  const bool negative = text.front() == '-';
  text.remove_prefix(1);
  return negative;
}

std::int64_t leadingInteger(std::string_view text) {
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
  const bool negative = skipBlanksAndSign(text);
  // Collected below zero, where the range reaches one further.
  std::int64_t below_zero = 0;
  for (; !text.empty() && isDigit(text.front()); text.remove_prefix(1)) {
    const int digit = text.front() - '0';
    if (below_zero < (kMin + digit) / 10) return negative ? kMin : kMax;
    below_zero = below_zero * 10 - digit;
  }
  if (negative) return below_zero;
  return below_zero == kMin ? kMax : -below_zero;
}

std::int64_t saturated(double real) {
  if (std::isnan(real)) return 0;
  if (real >= kTwoTo63) return std::numeric_limits<std::int64_t>::max();
  if (real < -kTwoTo63) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(real);
}

bool leadingTruth(std::string_view text) {
  skipBlanksAndSign(text);
  while (!text.empty() && text.front() == '0') text.remove_prefix(1);
  if (text.empty()) return false;
  return isDigit(text.front()) || std::string_view("YyTt").find(text.front()) != text.npos;
}

}  // namespace

Value::Value(std::uint64_t value) {
  if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
    storage_ = value;
  } else {
    storage_ = static_cast<std::int64_t>(value);
  }
}

bool operator==(const Date& a, const Date& b) {
  return equalReals(a.seconds_since_2001, b.seconds_since_2001);
}

bool operator==(const Value& a, const Value& b) {
  const std::optional<Number> first = numberOf(a);
  const std::optional<Number> second = numberOf(b);
  if (first && second) return equalNumbers(*first, *second);
  return a.storage_ == b.storage_;
}

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

std::int64_t int64Value(const Value& value) {
  if (const auto* text = value.as<std::string>()) return leadingInteger(*text);
  const std::optional<Number> number = numberOf(value);
  if (!number) return 0;
  if (number->is_real) return saturated(number->real);
  if (number->above_int64 != 0) return std::numeric_limits<std::int64_t>::max();
  return number->whole;
}

std::int32_t int32Value(const Value& value) {
  const std::int64_t wide = int64Value(value);
  if (wide > std::numeric_limits<std::int32_t>::max())
    return std::numeric_limits<std::int32_t>::max();
  if (wide < std::numeric_limits<std::int32_t>::min())
    return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(wide);
}

bool truthValue(const Value& value) {
  if (const auto* text = value.as<std::string>()) return leadingTruth(*text);
  const std::optional<Number> number = numberOf(value);
  if (!number) return false;
  if (number->is_real) return number->real != 0 && !std::isnan(number->real);
  return number->whole != 0 || number->above_int64 != 0;
}

}  // namespace vorlatch::plist
