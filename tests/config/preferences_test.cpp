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
  EXPECT_EQ(appConfigs({}), TargetDictionaries{});
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
            (TargetDictionaries{{"", {}}, {"a", kept}}));
}

TEST(Preferences, AppConfigsOfAnotherTypeReadAsMissing) {
  for (const Value& value : {Value(true), Value(1), Value(1.5), Value("x"), Value(Data{"x"}),
                             Value(Date{1}), Value(Array{Dictionary{}})}) {
    EXPECT_EQ(appConfigs({{"AppConfigs", value}}), TargetDictionaries{});
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

TEST(ConfiguredTargets, AreReadOnceEach) {
  const Targets targets = configuredTargets(
      {{"AppConfigs",
        Dictionary{{"a", Dictionary{{"NiceValue", "5"}, {"Own", Array{}}}}, {"b", 1}}}});
  ASSERT_EQ(targets.size(), 1U);
  EXPECT_EQ(targets.at("a").settings, TargetSettings{.nice_value = 5});
  EXPECT_EQ(targets.at("a").stored_form,
            plist::comparisonForm(Dictionary{{"NiceValue", "5"}, {"Own", Array{}}}));
}

TEST(TargetSettings, AreTheirDefaultsWhereTheKeysAreMissing) {
  EXPECT_EQ(readTargetSettings({}), TargetSettings{});
}

TEST(TargetSettings, HaveTheirKeys) {
  EXPECT_EQ(readTargetSettings({{"JetsamPriority", 1},
                                {"NiceValue", 2},
                                {"MemLimitActive", 3},
                                {"MemLimitInactive", 4},
                                {"CheckInterval", 5},
                                {"StripManaged", false},
                                {"Remark", 7}}),
            (TargetSettings{.check_interval_s = 5,
                            .jetsam_priority = 1,
                            .active_limit_mb = 3,
                            .inactive_limit_mb = 4,
                            .nice_value = 2,
                            .strips_managed = false}));
}

TEST(TargetSettings, ReadNumericStrings) {
  const auto band = [](const Value& value) {
    return readTargetSettings({{"JetsamPriority", value}}).jetsam_priority;
  };
  EXPECT_EQ(band("15"), 15);
  EXPECT_EQ(band("fifteen"), 0);
  EXPECT_EQ(band(""), 0);
}

TEST(TargetSettings, SaturateNumbers) {
  const auto limit_mb = [](const Value& value) {
    return readTargetSettings({{"MemLimitActive", value}}).active_limit_mb;
  };
  EXPECT_EQ(limit_mb(UINT64_MAX), INT32_MAX);
  EXPECT_EQ(limit_mb(INT64_MIN), INT32_MIN);
  EXPECT_EQ(limit_mb(std::nan("")), 0);
}

TEST(TargetSettings, ClampTheNiceValue) {
  const auto nice_value = [](int value) {
    return readTargetSettings({{"NiceValue", value}}).nice_value;
  };
  EXPECT_EQ(nice_value(-35), -20);
  EXPECT_EQ(nice_value(-20), -20);
  EXPECT_EQ(nice_value(20), 20);
  EXPECT_EQ(nice_value(99), 20);
}

TEST(TargetSettings, HaveNoCheckIntervalBelowOne) {
  const auto interval_s = [](const Value& value) {
    return readTargetSettings({{"CheckInterval", value}}).check_interval_s;
  };
  EXPECT_EQ(interval_s("5"), 5);
  EXPECT_EQ(interval_s(INT32_MAX), INT32_MAX);
  EXPECT_EQ(interval_s(0), 0);
  EXPECT_EQ(interval_s(-5), 0);
}

TEST(TargetSettings, ReadStripManagedAsATruthValue) {
  const auto strips = [](const Value& value) {
    return readTargetSettings({{"StripManaged", value}}).strips_managed;
  };
  EXPECT_EQ(strips(true), true);
  EXPECT_EQ(strips(0), false);
  EXPECT_EQ(strips(""), false);
  EXPECT_EQ(strips(Dictionary{}), false);
}

}  // namespace
}  // namespace vorlatch
