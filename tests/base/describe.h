// Values, and values as text, for comparing them with their types: 1, 1.0 and true are equal
// numbers.
#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/plist_value.h"
#include "platform/property_list.h"

namespace vorlatch::test {

std::string describe(const plist::Value& value);

struct Describe {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::int64_t value) const { return "int " + std::to_string(value); }
  std::string operator()(std::uint64_t value) const { return "uint " + std::to_string(value); }
  std::string operator()(double value) const { return "real " + std::to_string(value); }
  std::string operator()(const std::string& value) const { return "string " + value; }
  std::string operator()(const plist::Date& value) const {
    return "date " + std::to_string(value.seconds_since_2001);
  }
  std::string operator()(const plist::Data& value) const { return "data " + value.bytes; }
  std::string operator()(const plist::Array& members) const {
    std::string text = "[";
    for (const plist::Value& member : members) text += describe(member) + ";";
    return text + "]";
  }
  std::string operator()(const plist::Dictionary& members) const {
    std::string text = "{";
    for (const auto& [key, member] : members) text += key + "=" + describe(member) + ";";
    return text + "}";
  }
};

inline std::string describe(const plist::Value& value) {
  return std::visit(Describe(), value.storage());
}

// What a property list holds.
inline std::string parsed(std::string_view bytes) {
  const std::optional<plist::Value> value = platform::parsePropertyList(bytes);
  return value ? describe(*value) : "does not parse";
}

// A value of each type and at the end of each range.
inline plist::Dictionary oneOfEverything() {
  using plist::Array;
  using plist::Data;
  using plist::Date;
  using plist::Dictionary;
  using Real = std::numeric_limits<double>;
  return {{"true", true},
          {"false", false},
          {"integers", Array{-5, 0, INT64_MIN, INT64_MAX, UINT64_MAX}},
          {"reals", Array{1.0, 0.1, 1.0 / 3, Real::max()}},
          {"no numbers", Array{Real::infinity(), -Real::infinity(), Real::quiet_NaN()}},
          {"texts", Array{"", "微信 <&> \xF0\x9F\x98\x80 \"x\"\n"}},
          {"dates", Array{Date{1234}, Date{-978307200}}},
          {"data", Array{Data{}, Data{std::string("\0\x01\xFF", 3)}}},
          {"lists", Array{Array{1, "two", Array{3.5}}, Array{}, Dictionary{}}},
          {"微信\n", false},
          {"", Dictionary{{"a", Dictionary{{"", 1}}}}}};
}

}  // namespace vorlatch::test
