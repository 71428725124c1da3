#include "cli/settings_schema.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <climits>
#include <cstdio>

#include "base/utf8.h"
#include "cli/bands.h"
#include "cli/display_text.h"
#include "cli/failure.h"
#include "cli/nearest.h"
#include "config/preferences.h"
#include "kernel/judgement.h"

namespace vorlatch::cli {
namespace {

constexpr std::array<SettingRule, 7> kRules = {{
    {keys::kCheckInterval, SettingKind::Integer, 0, INT32_MAX,
     "seconds between looks of the target's own timer; 0: none, the patrol looks every 1800 s"},
    {keys::kJetsamPriority, SettingKind::Integer, -1, kHighestBandSinceIOS16,
     "jetsam band to hold the process at; -1: left alone, 0: the system's default"},
    {keys::kMemLimitActive, SettingKind::Integer, -1, INT32_MAX,
     "memory limit in MB while active; 0: the system's default"},
    {keys::kMemLimitInactive, SettingKind::Integer, -1, INT32_MAX,
     "memory limit in MB while inactive; 0: the system's default"},
    {keys::kNiceValue, SettingKind::Integer, kLowestNice, kHighestNice,
     "nice value to hold the process at"},
    {keys::kStripManaged, SettingKind::Boolean, 0, 1,
     "whether to take the process out of the system's memory management"},
    {keys::kRemark, SettingKind::Text, 0, 0, "a note for yourself; the daemon never reads it"},
}};

bool isBand(const SettingRule& rule) {
  return std::string_view(rule.key) == keys::kJetsamPriority;
}

bool isInRange(const SettingRule& rule, std::int64_t number) {
  return (number >= rule.lowest && number <= rule.highest) ||
         (isBand(rule) && number == kBandNeverAdapted);
}

std::string rangeText(const SettingRule& rule) {
  return std::to_string(rule.lowest) + " to " + std::to_string(rule.highest) +
         (isBand(rule) ? ", or a band's name (see vorlatchctl bands)" : "");
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
  return number;
}

plist::Value parseInteger(const SettingRule& rule, std::string_view text) {
  std::optional<std::int64_t> number = wholeNumber(text);
  if (!number && isBand(rule)) number = bandNumber(text);
  if (number && isInRange(rule, *number)) return *number;
  std::string message =
      std::string(rule.key) + " takes " + rangeText(rule) + ", not \"" + visible(text) + "\"";
  if (isBand(rule) && !number) {
    std::vector<std::string> names;
    for (const Band& band : jetsamBands()) {
      if (!band.is_reserved) names.emplace_back(band.name);
    }
    message += suggestion(text, names);
  }
  failWrongUsage(message);
}

plist::Value parseBoolean(const SettingRule& rule, std::string_view text) {
  constexpr std::array<std::string_view, 4> kYes = {"true", "yes", "on", "1"};
  constexpr std::array<std::string_view, 4> kNo = {"false", "no", "off", "0"};
  if (std::find(kYes.begin(), kYes.end(), text) != kYes.end()) return true;
  if (std::find(kNo.begin(), kNo.end(), text) != kNo.end()) return false;
  failWrongUsage(std::string(rule.key) + " takes true or false, not \"" + visible(text) + "\"");
}

// What becomes of an integer that the daemon has read, in words; nothing when it takes it as it is.
std::string consequenceOf(const SettingRule& rule, std::int32_t number) {
  if (isInRange(rule, number)) return {};
  const std::string_view key = rule.key;
  if (key == keys::kNiceValue)
    return "the daemon makes it " + std::to_string(number < 0 ? kLowestNice : kHighestNice);
  if (key == keys::kCheckInterval) return "it counts as none";
  if (key != keys::kJetsamPriority) return "the kernel takes it for the system's default";
  const std::optional<std::int32_t> adapted = adaptedBand(number);
  if (!adapted) return "no kernel has this band, and it is refused";
  return "no kernel has this band; refused, the daemon tries " + std::to_string(*adapted);
}

std::optional<Fault> integerFaultOf(const SettingRule& rule, const plist::Value& value) {
  const std::int32_t number = plist::int32Value(value);
  const bool is_integer =
      value.as<std::int64_t>() != nullptr || value.as<std::uint64_t>() != nullptr;
  std::string consequence = consequenceOf(rule, number);
  if (!is_integer) {
    std::string message = std::string("is ") + kindText(value) + " (" + settingText(value) +
                          ") and not an integer; the daemon reads it as " + std::to_string(number);
    if (!consequence.empty()) message += ", and " + consequence;
    return Fault{"wrong-type", message};
  }
  if (consequence.empty() && !isInRange(rule, plist::int64Value(value))) {
    consequence = "the daemon makes it " + std::to_string(number);
  }
  if (consequence.empty()) return std::nullopt;
  return Fault{"out-of-range", "is " + settingText(value) + ", outside " +
                                   std::to_string(rule.lowest) + " to " +
                                   std::to_string(rule.highest) + "; " + consequence};
}

struct KindText {
  const char* operator()(bool) const { return "a truth value"; }
  const char* operator()(std::int64_t) const { return "an integer"; }
  const char* operator()(std::uint64_t) const { return "an integer"; }
  const char* operator()(double) const { return "a real number"; }
  const char* operator()(const std::string&) const { return "a text"; }
  const char* operator()(const plist::Date&) const { return "a date"; }
  const char* operator()(const plist::Data&) const { return "data"; }
  const char* operator()(const plist::Array&) const { return "a list"; }
  const char* operator()(const plist::Dictionary&) const { return "a dictionary"; }
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
  std::string operator()(const plist::Date&) const { return "date"; }
  std::string operator()(const plist::Data& value) const {
    return std::to_string(value.bytes.size()) + " bytes";
  }
  std::string operator()(const plist::Array& value) const {
    return std::to_string(value.size()) + " items";
  }
  std::string operator()(const plist::Dictionary& value) const {
    return std::to_string(value.size()) + " entries";
  }
};

}  // namespace

std::span<const SettingRule> settingRules() {
  return kRules;
}

const SettingRule* settingRule(std::string_view key) {
  const auto* const rule = std::find_if(kRules.begin(), kRules.end(),
                                        [key](const SettingRule& each) { return each.key == key; });
  return rule == kRules.end() ? nullptr : rule;
}

std::vector<std::string> settingKeys() {
  std::vector<std::string> keys;
  keys.reserve(kRules.size());
  for (const SettingRule& rule : kRules) keys.emplace_back(rule.key);
  return keys;
}

plist::Value parseSetting(const SettingRule& rule, std::string_view text) {
  if (rule.kind == SettingKind::Integer) return parseInteger(rule, text);
  if (rule.kind == SettingKind::Boolean) return parseBoolean(rule, text);
  if (!isValidUtf8(text)) failWrongUsage(std::string(rule.key) + " takes UTF-8 text");
  return std::string(text);
}

std::string settingText(const plist::Value& value) {
  return std::visit(SettingText{}, value.storage());
}

const char* kindText(const plist::Value& value) {
  return std::visit(KindText{}, value.storage());
}

std::optional<Fault> faultOf(const SettingRule& rule, const plist::Value& value) {
  if (rule.kind == SettingKind::Integer) return integerFaultOf(rule, value);
  if (rule.kind == SettingKind::Boolean) return booleanFaultOf(value);
  if (value.as<std::string>() != nullptr) return std::nullopt;
  return Fault{"wrong-type", std::string("is ") + kindText(value) + " and not a text"};
}

std::optional<Fault> booleanFaultOf(const plist::Value& value) {
  if (value.as<bool>() != nullptr) return std::nullopt;
  return Fault{"wrong-type", std::string("is ") + kindText(value) + " (" + settingText(value) +
                                 ") and no truth value; the daemon reads it as " +
                                 (plist::truthValue(value) ? "true" : "false")};
}

}  // namespace vorlatch::cli
