#include "base/plist_value.h"

#include <bit>
#include <cmath>
#include <cstddef>
#include <limits>
#include <optional>

namespace vorlatch::plist {
namespace {

constexpr const char* kUidKey = "CF$UID";

constexpr double kTwoTo63 = 9223372036854775808.0;
constexpr double kTwoTo64 = 18446744073709551616.0;

// Produces the comparison form of a value: a letter for the kind, then the contents, with the
// length first if it varies. Counts the bytes, and appends them to `written` unless that is null.
struct ComparisonForm {
  std::string* written = nullptr;
  std::size_t bytes = 0;

  void operator()(bool value) { (*this)(std::int64_t{value ? 1 : 0}); }
  void operator()(std::int64_t value) {
    put("i");
    putNumber(static_cast<std::uint64_t>(value));
  }
  void operator()(std::uint64_t above_int64) {
    put("u");
    putNumber(above_int64);
  }
  void operator()(double value) {
    // A real that is a whole number within 64 bits has the form of that integer, because integers
    // keep all 64 bits and the device's long double is only as wide as a double.
    const bool is_whole = std::trunc(value) == value;
    if (is_whole && value >= -kTwoTo63 && value < kTwoTo63) {
      (*this)(static_cast<std::int64_t>(value));
    } else if (is_whole && value >= kTwoTo63 && value < kTwoTo64) {
      (*this)(static_cast<std::uint64_t>(value));
    } else {
      put("r");
      putReal(value);
    }
  }
  void operator()(const std::string& text) { putSized("s", text); }
  void operator()(const Date& date) {
    put("d");
    putReal(date.seconds_since_2001 == 0 ? 0.0 : date.seconds_since_2001);  // -0 equals 0
  }
  void operator()(const Data& data) { putSized("b", data.bytes); }
  void operator()(const Array& array) {
    put("a");
    putNumber(array.size());
    for (const Value& item : array) std::visit(*this, item.storage());
  }
  void operator()(const Dictionary& dictionary) {
    put("k");
    putNumber(dictionary.size());
    for (const auto& [key, value] : dictionary) {
      putSized("s", key);
      std::visit(*this, value.storage());
    }
  }

 private:
  void put(std::string_view some) {
    bytes += some.size();
    if (written != nullptr) written->append(some);
  }
  // Seven bits per byte, lowest first, because most numbers are small. The top bit means that more
  // bytes follow.
  void putNumber(std::uint64_t number) {
    for (; number > 0x7F; number >>= 7U) putByte((number & 0x7FU) | 0x80U);
    putByte(number);
  }
  void putByte(std::uint64_t byte) {
    const char one = static_cast<char>(byte);
    put({&one, 1});
  }
  void putReal(double real) {
    const double one_nan = std::isnan(real) ? std::numeric_limits<double>::quiet_NaN() : real;
    putNumber(std::bit_cast<std::uint64_t>(one_nan));
  }
  void putSized(std::string_view kind, std::string_view some) {
    put(kind);
    putNumber(some.size());
    put(some);
  }
};

bool isBlank(char c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}
bool isDigit(char c) {
  return c >= '0' && c <= '9';
}

// Skips leading blanks and one sign. Returns true if the sign was a minus.
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
  // Accumulates the negated number, because INT64_MIN has no positive counterpart.
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

std::string comparisonForm(const Value& value) {
  // Counts first, so that the string never grows by copying into a second buffer.
  ComparisonForm counted;
  std::visit(counted, value.storage());
  std::string form(counted.bytes, '\0');  // exact capacity; reserve() would round up
  form.clear();
  std::visit(ComparisonForm{.written = &form}, value.storage());
  return form;
}

bool operator==(const Value& a, const Value& b) {
  return comparisonForm(a) == comparisonForm(b);
}

const Value* find(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? nullptr : &entry->second;
}

std::int64_t int64Value(const Value& value) {
  if (const auto* boolean = value.as<bool>()) return *boolean ? 1 : 0;
  if (const auto* whole = value.as<std::int64_t>()) return *whole;
  if (value.as<std::uint64_t>() != nullptr) return std::numeric_limits<std::int64_t>::max();
  if (const auto* real = value.as<double>()) return saturated(*real);
  if (const auto* text = value.as<std::string>()) return leadingInteger(*text);
  return 0;
}

Value uidValue(std::uint32_t uid) {
  return {Dictionary{{kUidKey, Value(std::int64_t{uid})}}};
}

std::optional<std::uint32_t> uidIn(const Dictionary& dictionary) {
  const Value* value = dictionary.size() == 1 ? find(dictionary, kUidKey) : nullptr;
  const auto* uid = value != nullptr ? value->as<std::int64_t>() : nullptr;
  if (uid == nullptr || *uid < 0 || *uid > std::numeric_limits<std::uint32_t>::max()) {
    return std::nullopt;
  }
  return static_cast<std::uint32_t>(*uid);
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
  if (const auto* boolean = value.as<bool>()) return *boolean;
  if (const auto* whole = value.as<std::int64_t>()) return *whole != 0;
  if (value.as<std::uint64_t>() != nullptr) return true;
  if (const auto* real = value.as<double>()) return *real != 0 && !std::isnan(*real);
  if (const auto* text = value.as<std::string>()) return leadingTruth(*text);
  return false;
}

}  // namespace vorlatch::plist
