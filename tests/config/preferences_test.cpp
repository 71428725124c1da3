#include "config/preferences.h"

#include <cmath>

#include <gtest/gtest.h>

#include "tests/support/story.h"

namespace vorlatch {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using plist::Value;
using tests::Story;

TEST(Preferences, AMissingFileReadsAsEmptyAndSwitchedOff) {
  Story story;
  EXPECT_EQ(loadPreferences(), Dictionary{});
  EXPECT_FALSE(isEnabled({}));
  EXPECT_EQ(appConfigs({}), Targets{});
}

TEST(Preferences, AreReadAfreshEachTime) {
  Story story;
  story.writePreferences({{"Enabled", true}});
  EXPECT_TRUE(isEnabled(loadPreferences()));
  story.writePreferences({{"Enabled", false}});
  EXPECT_FALSE(isEnabled(loadPreferences()));
}

TEST(Preferences, TheSwitchIsTheTruthValueOfWhatIsStored) {
  EXPECT_TRUE(isEnabled({{"Enabled", 1}}));
  EXPECT_TRUE(isEnabled({{"Enabled", "yes"}}));
  EXPECT_FALSE(isEnabled({{"Enabled", 0}}));
  EXPECT_FALSE(isEnabled({{"Enabled", "no"}}));
  EXPECT_FALSE(isEnabled({{"Enabled", Array{true}}}));
}

TEST(Preferences, TargetsOfAnotherTypeArePassedOver) {
  const Dictionary kept{{"NiceValue", 5}};
  EXPECT_EQ(appConfigs({{"AppConfigs", Dictionary{{"a", kept},
                                                  {"b", 1},
                                                  {"c", "x"},
                                                  {"d", Array{kept}},
                                                  {"e", Data{"x"}},
                                                  {"f", Date{1}},
                                                  {"g", true},
                                                  {"h", 1.5},
                                                  {"", Dictionary{}}}}}),
            (Targets{{"", {}}, {"a", kept}}));
}

TEST(Preferences, AppConfigsOfAnotherTypeReadAsMissing) {
  for (const Value& value : {Value(true), Value(1), Value(1.5), Value("x"), Value(Data{"x"}),
                             Value(Date{1}), Value(Array{Dictionary{}})}) {
    EXPECT_EQ(appConfigs({{"AppConfigs", value}}), Targets{});
  }
}

TEST(Preferences, LogSizeLimit) {
  EXPECT_EQ(logSizeLimit({}), 2097152);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", 1}}), 1);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", 0}}), std::nullopt);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", -5}}), std::nullopt);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", "1048576"}}), 1048576);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", std::int64_t{1} << 40}}), std::int64_t{1} << 40);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", UINT64_MAX}}), INT64_MAX);
  EXPECT_EQ(logSizeLimit({{"LogSizeLimit", Array{5}}}), std::nullopt);
}

TEST(TargetSetting, ANumberAndANumericStringReadAlike) {
  for (const char* key : {"JetsamPriority", "MemLimitActive", "MemLimitInactive", "NiceValue"}) {
    EXPECT_EQ(integerSetting({{key, 15}}, key), 15);
    EXPECT_EQ(integerSetting({{key, "15"}}, key), 15);
    EXPECT_EQ(integerSetting({{key, "fifteen"}}, key), 0);
    EXPECT_EQ(integerSetting({{key, ""}}, key), 0);
    EXPECT_EQ(integerSetting({}, key), 0);
  }
}

TEST(TargetSetting, NumbersBeyondThirtyTwoBitsSaturate) {
  EXPECT_EQ(integerSetting({{"MemLimitActive", UINT64_MAX}}, "MemLimitActive"), INT32_MAX);
  EXPECT_EQ(integerSetting({{"MemLimitActive", INT64_MIN}}, "MemLimitActive"), INT32_MIN);
  EXPECT_EQ(integerSetting({{"MemLimitActive", std::nan("")}}, "MemLimitActive"), 0);
}

TEST(TargetSetting, TheNiceValueIsClamped) {
  EXPECT_EQ(niceValue({{"NiceValue", -35}}), -20);
  EXPECT_EQ(niceValue({{"NiceValue", -20}}), -20);
  EXPECT_EQ(niceValue({{"NiceValue", 20}}), 20);
  EXPECT_EQ(niceValue({{"NiceValue", 99}}), 20);
  EXPECT_EQ(niceValue({}), 0);
}

TEST(TargetSetting, ACheckIntervalOfZeroNegativeOrMissingIsNone) {
  EXPECT_EQ(checkInterval({{"CheckInterval", 5}}), 5);
  EXPECT_EQ(checkInterval({{"CheckInterval", "5"}}), 5);
  EXPECT_EQ(checkInterval({{"CheckInterval", INT32_MAX}}), INT32_MAX);
  EXPECT_EQ(checkInterval({{"CheckInterval", 0}}), 0);
  EXPECT_EQ(checkInterval({{"CheckInterval", -5}}), 0);
  EXPECT_EQ(checkInterval({}), 0);
}

TEST(TargetSetting, StripManagedIsNothingWhenMissingAndElseATruthValue) {
  EXPECT_EQ(stripManaged({}), std::nullopt);
  EXPECT_EQ(stripManaged({{"StripManaged", true}}), true);
  EXPECT_EQ(stripManaged({{"StripManaged", 0}}), false);
  EXPECT_EQ(stripManaged({{"StripManaged", ""}}), false);
  EXPECT_EQ(stripManaged({{"StripManaged", Dictionary{}}}), false);
}

}  // namespace
}  // namespace vorlatch
