// The property-list value that the whole daemon speaks, and the rules by which a stored object is
// read as a number or a truth value. Portable: parsing and writing are behind property_list.h.
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
  // The unsigned alternative holds only numbers above INT64_MAX, so each integer has one form.
  using Storage = std::variant<bool, std::int64_t, std::uint64_t, double, std::string, Date, Data,
                               Array, Dictionary>;

  // Conversions are implicit on purpose: a nested literal then reads like the list it stands for.
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

  // The held alternative, or null when the value is of another type.
  template <typename T>
  [[nodiscard]] const T* as() const {
    return std::get_if<T>(&storage_);
  }
  template <typename T>
  [[nodiscard]] T* as() {
    return std::get_if<T>(&storage_);
  }

  // Deep equality of every key and value. 1, 1.0 and true are equal numbers, "1" is not one of
  // them; not-a-number equals itself, so that a value always equals its own copy.
  friend bool operator==(const Value& a, const Value& b);

 private:
  Storage storage_;
};

// Bytes that two values have in common exactly when they are equal. They take a fraction of the
// value's memory, for whoever has to know later whether a value has changed.
std::string comparisonForm(const Value& value);

// The value under a key, or null when the key is absent.
const Value* find(const Dictionary& dictionary, std::string_view key);

// A keyed archive's reference is kept in the form that it has in XML: a dictionary with the one key
// CF$UID and the number under it. uidIn is empty for any other dictionary.
Value uidValue(std::uint32_t uid);
std::optional<std::uint32_t> uidIn(const Dictionary& dictionary);

// The integer that a stored object stands for. Numbers beyond the range saturate, reals truncate,
// not-a-number is 0, a boolean is 1 or 0. A string counts by its leading blanks, one sign and
// digits (0 without digits, so "" is 0 too). Every other type is 0.
std::int32_t int32Value(const Value& value);
std::int64_t int64Value(const Value& value);

// The truth value of a stored object. A number is true unless it is 0 or not-a-number; a string is
// true when Y, y, T, t or a digit other than 0 follows its leading blanks, one sign and zeros.
// Every other type is false.
bool truthValue(const Value& value);

}  // namespace vorlatch::plist
