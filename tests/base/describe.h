// Values as text, for comparing them with their types: 1, 1.0 and true are equal numbers.
#pragma once

#include <cstdint>
#include <string>
#include <variant>

#include "base/plist_value.h"

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

}  // namespace vorlatch::test
