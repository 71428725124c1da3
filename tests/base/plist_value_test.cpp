#include "base/plist_value.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace vorlatch::plist {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST(PlistValue, IntegerValueOfEveryType) {
  const std::vector<std::pair<Value, std::int64_t>> cases = {
      {true, 1},
      {-7, -7},
      {INT64_MIN, INT64_MIN},
      {kLargest, INT64_MAX},
      {-2.9, -2},
      {9223372036854775808.0, INT64_MAX},
      {-9223372036854775808.0, INT64_MIN},
      {std::nan(""), 0},
      {"", 0},
      {" \t\n\v\f\r30", 30},
      {"+5", 5},
      {"--5", 0},
      {"- 5", 0},
      {"12abc", 12},
      {"9223372036854775808", INT64_MAX},
      {"-9223372036854775809", INT64_MIN},
      {"99999999999999999999999", INT64_MAX},
      {Date{5}, 0},
      {Data{"5"}, 0},
      {Array{5}, 0},
      {Dictionary{{"a", 5}}, 0},
  };
  for (const auto& [value, expected] : cases) {
    EXPECT_EQ(int64Value(value), expected) << comparisonForm(value);
  }
}

TEST(PlistValue, ThirtyTwoBitValueSaturates) {
  EXPECT_EQ(int32Value(std::int64_t{INT32_MAX} + 1), INT32_MAX);
  EXPECT_EQ(int32Value(std::int64_t{INT32_MIN}), INT32_MIN);
  EXPECT_EQ(int32Value(std::int64_t{INT32_MIN} - 1), INT32_MIN);
}

TEST(PlistValue, TruthValueOfEveryType) {
  for (const Value& value :
       {Value(true), Value(-1), Value(kLargest), Value(0.5), Value("1"), Value("9"), Value("Y"),
        Value("yes"), Value("True"), Value("t"), Value(" +1"), Value("-007"), Value("00y")}) {
    EXPECT_TRUE(truthValue(value)) << comparisonForm(value);
  }
  for (const Value& value :
       {Value(false), Value(0), Value(-0.0), Value(std::nan("")), Value(Date{1}), Value(Data{"1"}),
        Value(Array{1}), Value(Dictionary{{"a", 1}}), Value(""), Value("000"), Value("no"),
        Value("n1"), Value("++1"), Value("x"), Value("- 1")}) {
    EXPECT_FALSE(truthValue(value)) << comparisonForm(value);
  }
}

// A number is equal to the same number of another type.
TEST(PlistValue, EqualValues) {
  const Dictionary settings{{"NiceValue", -5}, {"List", Array{1, Data{"x"}}}};
  const Dictionary same{{"NiceValue", -5.0}, {"List", Array{true, Data{"x"}}}};
  const std::vector<std::pair<Value, Value>> pairs{
      {1, 1.0},
      {1, true},
      {0, -0.0},
      {18446744073709549568.0, std::uint64_t{18446744073709549568U}},
      {std::nan(""), std::nan("")},
      {Date{std::nan("")}, Date{std::nan("")}},
      {settings, same}};
  for (const auto& [a, b] : pairs) EXPECT_EQ(a, b) << comparisonForm(a);
}

// The nearest real is no equal of an integer that it cannot hold.
TEST(PlistValue, DifferentValues) {
  const Dictionary settings{{"NiceValue", -5}, {"List", Array{1, Data{"x"}}}};
  const Dictionary other{{"NiceValue", -5}, {"List", Array{1, Data{"y"}}}};
  const std::vector<std::pair<Value, Value>> pairs{
      {1, "1"},
      {1, 2},
      {1, 1.5},
      {-1, kLargest},
      {std::nan(""), 0},
      {kInfinity, -kInfinity},
      {std::int64_t{9007199254740993}, 9007199254740992.0},
      {kLargest, 18446744073709551616.0},
      {"", Data{}},
      {Date{1}, 1},
      {Date{1}, Date{std::nan("")}},
      {Array{}, Dictionary{}},
      {settings, other},
      {settings, Dictionary{{"NiceValue", -5}}}};
  for (const auto& [a, b] : pairs) EXPECT_NE(a, b) << comparisonForm(a);
}

TEST(PlistValue, SmallUnsignedNumbersAreStoredSigned) {
  EXPECT_NE(Value(std::uint64_t{5}).as<std::int64_t>(), nullptr);
  EXPECT_NE(Value(kLargest).as<std::uint64_t>(), nullptr);
}

}  // namespace
}  // namespace vorlatch::plist
