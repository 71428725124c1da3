#include "config/preferences.h"

#include <cmath>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;

TEST(Preferences, AreReadAfreshEachTimeAndOffWhenMissing) {
  tests::Story story;
  EXPECT_EQ(loadPreferences(), Dictionary{});
  EXPECT_EQ(appConfigs({}), TargetDictionaries{});
  EXPECT_FALSE(isEnabled({}));
  for (const bool enabled : {true, false}) {
    story.writePreferences({{"Enabled", enabled}});
    EXPECT_EQ(isEnabled(loadPreferences()), enabled);
  }
}

TEST(Preferences, TheSwitchIsTheTruthValueOfWhatIsStored) {
  for (const Value& value : {Value(1), Value("yes")}) EXPECT_TRUE(isEnabled({{"Enabled", value}}));
  for (const Value& value : {Value(0), Value("no"), Value(Array{true})}) {
    EXPECT_FALSE(isEnabled({{"Enabled", value}}));
  }
}

TEST(Preferences, DictionariesOfAnotherTypeReadAsMissing) {
  const Dictionary kept{{"NiceValue", 5}};
  Dictionary targets{{"a", kept}, {"", Dictionary{}}};
  const std::vector<Value> others = {true, 1, 1.5, "x", Data{"x"}, Date{1}, Array{kept}};
  for (const Value& other : others) {
    targets.insert_or_assign("other " + std::to_string(targets.size()), other);
    EXPECT_EQ(appConfigs({{"AppConfigs", other}}), TargetDictionaries{});
  }
  EXPECT_EQ(appConfigs({{"AppConfigs", targets}}), (TargetDictionaries{{"", {}}, {"a", kept}}));
}

TEST(Preferences, LogSizeLimit) {
  EXPECT_EQ(logSizeLimit({}), 2097152);
  const std::pair<Value, std::optional<std::int64_t>> limits[] = {
      {1, 1},
      {0, std::nullopt},
      {-5, std::nullopt},
      {"1048576", 1048576},
      {std::int64_t{1} << 40, std::int64_t{1} << 40},
      {UINT64_MAX, INT64_MAX},
      {Array{5}, std::nullopt}};
  for (const auto& [stored, limit] : limits) {
    EXPECT_EQ(logSizeLimit({{"LogSizeLimit", stored}}), limit);
  }
}

TEST(ConfiguredTargets, AreReadOnceEach) {
  const Dictionary stored{{"NiceValue", "5"}, {"Own", Array{}}};
  const Targets targets = configuredTargets({{"AppConfigs", Dictionary{{"a", stored}, {"b", 1}}}});
  ASSERT_EQ(targets.size(), 1U);
  EXPECT_EQ(targets.at("a").settings, TargetSettings{.nice_value = 5});
  EXPECT_EQ(targets.at("a").stored_form, plist::comparisonForm(stored));
}

TEST(TargetSettings, ConvertWhatIsStored) {
  const std::tuple<const char*, Value, TargetSettings> cases[] = {
      {"Remark", 7, {}},
      {"JetsamPriority", 1, {.jetsam_priority = 1}},
      {"JetsamPriority", "15", {.jetsam_priority = 15}},
      {"JetsamPriority", "fifteen", {.jetsam_priority = 0}},
      {"JetsamPriority", "", {.jetsam_priority = 0}},
      {"MemLimitActive", UINT64_MAX, {.active_limit_mb = INT32_MAX}},
      {"MemLimitActive", INT64_MIN, {.active_limit_mb = INT32_MIN}},
      {"MemLimitActive", std::nan(""), {.active_limit_mb = 0}},
      {"MemLimitInactive", 4, {.inactive_limit_mb = 4}},
      {"NiceValue", -35, {.nice_value = -20}},
      {"NiceValue", -20, {.nice_value = -20}},
      {"NiceValue", 20, {.nice_value = 20}},
      {"NiceValue", 99, {.nice_value = 20}},
      {"CheckInterval", "5", {.check_interval_s = 5}},
      {"CheckInterval", INT32_MAX, {.check_interval_s = INT32_MAX}},
      {"CheckInterval", 0, {.check_interval_s = 0}},
      {"CheckInterval", -5, {.check_interval_s = 0}},
      {"StripManaged", true, {.strips_managed = true}},
      {"StripManaged", 0, {.strips_managed = false}},
      {"StripManaged", "", {.strips_managed = false}},
      {"StripManaged", Dictionary{}, {.strips_managed = false}}};
  EXPECT_EQ(readTargetSettings({}), TargetSettings{});
  Dictionary all;
  for (const auto& [key, stored, settings] : cases) {
    EXPECT_EQ(readTargetSettings({{key, stored}}), settings) << key;
    all.insert_or_assign(key, stored);
  }
  EXPECT_EQ(readTargetSettings(all), (TargetSettings{.check_interval_s = 0,
                                                     .jetsam_priority = 0,
                                                     .active_limit_mb = 0,
                                                     .inactive_limit_mb = 4,
                                                     .nice_value = 20,
                                                     .strips_managed = false}));
}

}  // namespace
}  // namespace vorlatch
