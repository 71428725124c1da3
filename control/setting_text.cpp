#include "control/setting_text.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <cstdio>
#include <limits>

#include "base/display_text.h"
#include "base/utf8.h"
#include "control/failure.h"
#include "control/nearest.h"
#include "control/translation.h"
#include "kernel/jetsam_band.h"
#include "platform/jetsam_bands.h"

namespace vorlatch::control {
namespace {

bool isBand(const SettingKey& row) {
  return std::string_view(row.key) == keys::kJetsamPriority;
}

bool isInRange(const SettingKey& row, std::int64_t number) {
  return (number >= row.lowest && number <= row.highest) ||
         (isBand(row) && number == kBandNeverAdapted);
}

std::string rangeText(const SettingKey& row) {
  if (isBand(row)) {
    return tr("%s to %s, or a band's name (see vorlatchctl bands)", row.lowest, row.highest);
  }
  if (row.unit == SettingKey::Unit::Seconds) {
    return tr("%s to %s seconds, or 30s, 5m, 1h", row.lowest, row.highest);
  }
  if (row.unit == SettingKey::Unit::Megabytes) {
    return tr("%s to %s MB, or 512MB, 1G", row.lowest, row.highest);
  }
  return tr("%s to %s", row.lowest, row.highest);
}

// Returns the number that the preferences store for a band's name: that of iOS 16, which the daemon
// adapts to older kernels. Empty for an unknown name and for a reserved band.
std::optional<std::int64_t> bandNumber(std::string_view name) {
  for (const platform::JetsamBand& band : platform::kJetsamBands) {
    if (band.name == name && !band.is_reserved) return band.since_ios16;
  }
  return std::nullopt;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

// Returns the text with full-width forms (U+FF01 to U+FF5E), which Chinese keyboards type, as
// ASCII.
std::string asciiOf(std::string_view text) {
  constexpr std::string_view kBlock = "\xEF\xBC";      // U+FF00 to U+FF3F
  constexpr std::string_view kNextBlock = "\xEF\xBD";  // U+FF40 to U+FF7F
  std::string ascii;
  while (!text.empty()) {
    const bool is_wide =
        text.size() >= 3 && (text.starts_with(kBlock) || text.starts_with(kNextBlock));
    const int last = is_wide ? static_cast<unsigned char>(text[2]) - 0x80 : 0;
    const int code = text.starts_with(kBlock) ? last + 0x20 : last + 0x60;
    if (is_wide && code > 0x20 && code < 0x7F) {
      ascii += static_cast<char>(code);
      text.remove_prefix(3);
    } else {
      ascii += text.front();
      text.remove_prefix(1);
    }
  }
  return ascii;
}

std::string lowerCaseOf(std::string_view text) {
  std::string lower(text);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return lower;
}

struct UnitName {
  SettingKey::Unit unit;
  std::string_view name;
  std::int64_t factor;
};
constexpr std::array<UnitName, 9> kUnitNames = {{{SettingKey::Unit::Megabytes, "mb", 1},
                                                 {SettingKey::Unit::Megabytes, "m", 1},
                                                 {SettingKey::Unit::Megabytes, "gb", 1024},
                                                 {SettingKey::Unit::Megabytes, "g", 1024},
                                                 {SettingKey::Unit::Seconds, "s", 1},
                                                 {SettingKey::Unit::Seconds, "秒", 1},
                                                 {SettingKey::Unit::Seconds, "m", 60},
                                                 {SettingKey::Unit::Seconds, "min", 60},
                                                 {SettingKey::Unit::Seconds, "h", 3600}}};

// Returns a number with a unit of the key in that key's own unit.
std::optional<std::int64_t> numberWithUnit(const SettingKey& row, std::string_view text) {
  const std::string lower = lowerCaseOf(text);
  const std::size_t end = lower.find_first_not_of("-0123456789");
  if (end == lower.npos) return wholeNumber(lower);
  for (const UnitName& unit : kUnitNames) {
    if (unit.unit != row.unit || lower.substr(end) != unit.name) continue;
    const std::optional<std::int64_t> number = wholeNumber(lower.substr(0, end));
    constexpr std::int64_t kMost = std::numeric_limits<std::int32_t>::max();
    if (!number || *number > kMost || *number < -kMost) return std::nullopt;
    return *number * unit.factor;
  }
  return std::nullopt;
}

plist::Value parseInteger(const SettingKey& row, std::string_view text) {
  std::optional<std::int64_t> number = numberWithUnit(row, text);
  if (!number && isBand(row)) number = bandNumber(text);
  if (number && isInRange(row, *number)) return *number;
  std::string message = tr("%s takes %s, not \"%s\"", row.key, rangeText(row), visible(text));
  if (isBand(row) && !number) {
    message += suggestion(text, bandNames());
  }
  failWrongUsage(message);
}

plist::Value parseBoolean(const SettingKey& row, std::string_view text) {
  constexpr std::array<std::string_view, 4> kYes = {"true", "yes", "on", "1"};
  constexpr std::array<std::string_view, 4> kNo = {"false", "no", "off", "0"};
  const std::string lower = lowerCaseOf(text);
  if (std::find(kYes.begin(), kYes.end(), lower) != kYes.end()) return true;
  if (std::find(kNo.begin(), kNo.end(), lower) != kNo.end()) return false;
  failWrongUsage(tr("%s takes true or false, not \"%s\"", row.key, visible(text)));
}

// Says what the daemon does with an integer; empty if it uses the integer unchanged.
std::string consequenceOf(const SettingKey& row, std::int32_t number) {
  if (isInRange(row, number)) return {};
  if (row.outside != nullptr) return translated(row.outside);
  if (row.is_clamped) {
    return tr("the daemon makes it %s", std::clamp(number, row.lowest, row.highest));
  }
  const std::optional<std::int32_t> adapted = adaptedBand(number);
  if (!adapted) return tr("no kernel has this band, and it is refused");
  return tr("no kernel has this band; refused, the daemon tries %s", *adapted);
}

std::optional<Fault> integerFaultOf(const SettingKey& row, const plist::Value& value) {
  const std::int32_t number = plist::int32Value(value);
  const bool is_integer =
      value.as<std::int64_t>() != nullptr || value.as<std::uint64_t>() != nullptr;
  std::string consequence = consequenceOf(row, number);
  if (!is_integer) {
    std::string message = tr("is %s (%s) and not an integer; the daemon reads it as %s",
                             kindText(value), settingText(value), number);
    if (!consequence.empty()) message += tr(", and %s", consequence);
    return Fault{"wrong-type", message};
  }
  if (consequence.empty() && !isInRange(row, plist::int64Value(value))) {
    consequence = tr("the daemon makes it %s", number);
  }
  if (consequence.empty()) return std::nullopt;
  return Fault{"out-of-range", tr("is %s, outside %s to %s; %s", settingText(value), row.lowest,
                                  row.highest, consequence)};
}

struct KindText {
  const char* operator()(bool) const { return english("a truth value"); }
  const char* operator()(std::int64_t) const { return english("an integer"); }
  const char* operator()(std::uint64_t) const { return english("an integer"); }
  const char* operator()(double) const { return english("a real number"); }
  const char* operator()(const std::string&) const { return english("a text"); }
  const char* operator()(const plist::Date&) const { return english("a date"); }
  const char* operator()(const plist::Data&) const { return english("data"); }
  const char* operator()(const plist::Array&) const { return english("a list"); }
  const char* operator()(const plist::Dictionary&) const { return english("a dictionary"); }
};

struct SettingText {
  std::string operator()(bool value) const { return value ? "true" : "false"; }
  std::string operator()(std::int64_t value) const { return std::to_string(value); }
  std::string operator()(std::uint64_t value) const { return std::to_string(value); }
  std::string operator()(double value) const {
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.15g", value);
    return text.data();
  }
  std::string operator()(const std::string& value) const { return value; }
  std::string operator()(const plist::Date&) const { return tr("date"); }
  std::string operator()(const plist::Data& value) const {
    return tr("%s bytes", value.bytes.size());
  }
  std::string operator()(const plist::Array& value) const { return tr("%s items", value.size()); }
  std::string operator()(const plist::Dictionary& value) const {
    return tr("%s entries", value.size());
  }
};

}  // namespace

std::vector<std::string> settingKeyNames() {
  std::vector<std::string> names;
  names.reserve(kSettingKeys.size());
  for (const SettingKey& row : kSettingKeys) names.emplace_back(row.key);
  return names;
}

std::vector<std::string> bandNames() {
  std::vector<std::string> names;
  for (const platform::JetsamBand& band : platform::kJetsamBands) {
    if (!band.is_reserved) names.emplace_back(band.name);
  }
  return names;
}

plist::Value parseSetting(const SettingKey& row, std::string_view text) {
  if (row.kind == SettingKey::Kind::Integer) return parseInteger(row, asciiOf(text));
  if (row.kind == SettingKey::Kind::Boolean) return parseBoolean(row, asciiOf(text));
  if (!isValidUtf8(text)) failWrongUsage(tr("%s takes UTF-8 text", row.key));
  return std::string(text);
}

Assignment splitAssignment(std::string_view text) {
  constexpr std::string_view kWideEquals = "＝";
  const std::size_t wide = text.find(kWideEquals);
  const std::size_t equals = std::min(text.find('='), wide);
  if (equals == text.npos || equals == 0) {
    failWrongUsage(tr("\"%s\" is not KEY=VALUE", text));
  }
  const std::size_t length = equals == wide ? kWideEquals.size() : 1;
  return {.key = asciiOf(text.substr(0, equals)),
          .value = std::string(text.substr(equals + length))};
}

std::string settingText(const plist::Value& value) {
  return std::visit(SettingText{}, value.storage());
}

const char* kindText(const plist::Value& value) {
  return translated(std::visit(KindText{}, value.storage()));
}

std::optional<Fault> faultOf(const SettingKey& row, const plist::Value& value) {
  if (row.kind == SettingKey::Kind::Integer) return integerFaultOf(row, value);
  if (row.kind == SettingKey::Kind::Boolean) return booleanFaultOf(value);
  if (value.as<std::string>() != nullptr) return std::nullopt;
  return Fault{"wrong-type", tr("is %s and not a text", kindText(value))};
}

std::optional<Fault> booleanFaultOf(const plist::Value& value) {
  if (value.as<bool>() != nullptr) return std::nullopt;
  return Fault{"wrong-type",
               tr("is %s (%s) and no truth value; the daemon reads it as %s", kindText(value),
                  settingText(value), plist::truthValue(value) ? "true" : "false")};
}

}  // namespace vorlatch::control
