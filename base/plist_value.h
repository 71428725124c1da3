// The property-list value used throughout the daemon, and the rules for reading a stored value as a
// number or a truth value. Portable; platform/property_list.h parses and writes.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace vorlatch::plist {

class Value;

using Array = std::vector<Value>;
using Dictionary = std::map<std::string, Value, std::less<>>;

struct Date {
  double seconds_since_2001 = 0;
};

struct Data {
  std::string bytes;
};

// One object of a property list. Strings are UTF-8 and may hold any character.
class Value {
 public:
  // std::uint64_t holds only numbers above INT64_MAX, so each integer has exactly one form.
  using Storage = std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Date, Data,
                               Array, Dictionary>;

  // Conversions are implicit on purpose, so that nested literals read like the list they describe.
  Value(bool value) : storage_(value) {}
  Value(int value) : storage_(std::int64_t{value}) {}
  Value(std::int64_t value) : storage_(value) {}
  Value(std::uint64_t value);
  Value(double value) : storage_(value) {}
  Value(const char* value) : storage_(std::string(value)) {}
  Value(std::string value) : storage_(std::move(value)) {}
  Value(Date value) : storage_(value) {}
  Value(Data value) : storage_(std::move(value)) {}
  Value(Array value) : storage_(std::move(value)) {}
  Value(Dictionary value) : storage_(std::move(value)) {}

  [[nodiscard]] const Storage& storage() const { return storage_; }
  [[nodiscard]] Storage& storage() { return storage_; }

  // Returns the held alternative, or null if the value is of another type.
  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  [[nodiscard]] T* as() {
    return std::get_if<T>(&storage_);
  }

  // Compares deeply. 1, 1.0 and true are equal; the string "1" differs from them. Not-a-number
  // equals itself, so that a value always equals its own copy.
  friend bool operator==(const Value& a, const Value& b);

 private:
  Storage storage_;
};

// Returns bytes that are equal for two values exactly when the values are equal. They take a
// fraction of the value's memory, for callers that only need to detect a later change.
std::string comparisonForm(const Value& value);

// Returns the value under a key, or null if the key is absent.
const Value* find(const Dictionary& dictionary, std::string_view key);

// A keyed archive's reference (UID) is kept as XML shows it: a dictionary whose only key, CF$UID,
// holds the number. uidIn returns std::nullopt for any other dictionary.
Value uidValue(std::uint32_t uid);
std::optional<std::uint32_t> uidIn(const Dictionary& dictionary);

// Return the integer that a stored value stands for. Numbers beyond the range saturate, reals
// truncate, not-a-number is 0, a boolean is 1 or 0. A string is read as leading blanks, an optional
// sign and digits; without digits it is 0. Every other type is 0.
std::int32_t int32Value(const Value& value);
std::int64_t int64Value(const Value& value);

// Returns the truth value of a stored value. A number is true unless it is 0 or not-a-number. A
// string is true if Y, y, T, t or a digit other than 0 follows its leading blanks, optional sign
// and zeros. Every other type is false.
bool truthValue(const Value& value);

}  // namespace vorlatch::plist
