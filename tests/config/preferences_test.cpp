#include "config/preferences.h"

#include <cmath>
#include <optional>
#include <tuple>
#include <utility>

#include <gtest/gtest.h>

namespace vorlatch {
namespace {

using plist::Dictionary;
using plist::Value;

TEST(Preferences, LogSizeLimit) {
  EXPECT_EQ(logSizeLimit({}), 2'097'152);
  const std::pair<Value, std::optional<std::int64_t>> limits[] = {
      {1, 1},
      {-5, std::nullopt},
      {"1048576", 1048576},
      {std::int64_t{1} << 40, std::int64_t{1} << 40},
      {plist::Array{5}, std::nullopt}};
  for (const auto& [stored, limit] : limits) {
    EXPECT_EQ(logSizeLimit({{"LogSizeLimit", stored}}), limit);
  }
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
