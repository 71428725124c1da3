#include "base/plist_value.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace vorlatch::plist {
namespace {

constexpr double kInfinity = std::numeric_limits<double>::infinity();
constexpr std::uint64_t kLargest = std::numeric_limits<std::uint64_t>::max();

TEST(PlistValue, IntegerValueOfEveryType) {
  struct Case {
    Value value;
    std::int64_t expected;
  };
  const std::vector<Case> cases = {
      {true, 1},
      {false, 0},
      {-7, -7},
      {INT64_MIN, INT64_MIN},
      {kLargest, INT64_MAX},
      {2.9, 2},
      {-2.9, -2},
      {1e300, INT64_MAX},
      {-1e300, INT64_MIN},
      {9223372036854775808.0, INT64_MAX},
      {-9223372036854775808.0, INT64_MIN},
      {kInfinity, INT64_MAX},
      {std::nan(""), 0},
      {"", 0},
      {"30", 30},
      {" \t\n\v\f\r30", 30},
      {"-19", -19},
      {"+5", 5},
      {"--5", 0},
      {"- 5", 0},
      {"12abc", 12},
      {"1.9", 1},
      {"0x10", 0},
      {"abc", 0},
      {"9223372036854775807", INT64_MAX},
      {"9223372036854775808", INT64_MAX},
      {"-9223372036854775808", INT64_MIN},
      {"-9223372036854775809", INT64_MIN},
      {"99999999999999999999999", INT64_MAX},
      {"\xff", 0},
      {Date{5}, 0},
      {Data{"5"}, 0},
      {Array{5}, 0},
      {Dictionary{{"a", 5}}, 0},
  };
  for (std::size_t i = 0; i < cases.size(); ++i) {
    EXPECT_EQ(int64Value(cases[i].value), cases[i].expected) << "case " << i;
  }
}

TEST(PlistValue, ThirtyTwoBitValueSaturates) {
  EXPECT_EQ(int32Value(INT32_MAX), INT32_MAX);
  EXPECT_EQ(int32Value(std::int64_t{INT32_MAX} + 1), INT32_MAX);
  EXPECT_EQ(int32Value(std::int64_t{INT32_MIN}), INT32_MIN);
  EXPECT_EQ(int32Value(std::int64_t{INT32_MIN} - 1), INT32_MIN);
  EXPECT_EQ(int32Value(kLargest), INT32_MAX);
  EXPECT_EQ(int32Value("4294967296"), INT32_MAX);
  EXPECT_EQ(int32Value(-1e10), INT32_MIN);
}

TEST(PlistValue, TruthValueOfEveryType) {
  for (const Value& value :
       {Value(true), Value(1), Value(-1), Value(kLargest), Value(0.5), Value(kInfinity)}) {
    EXPECT_TRUE(truthValue(value)) << int64Value(value);
  }
  for (const Value& value :
       {Value(false), Value(0), Value(0.0), Value(-0.0), Value(std::nan("")), Value(Date{1}),
        Value(Data{"1"}), Value(Array{1}), Value(Dictionary{{"a", 1}})}) {
    EXPECT_FALSE(truthValue(value)) << int64Value(value);
  }
  for (const char* text : {"1", "9", "Y", "yes", "True", "t", " +1", "-007", "00y"}) {
    EXPECT_TRUE(truthValue(text)) << text;
  }
  for (const char* text : {"", "0", "000", "no", "n1", "++1", "x", "- 1"}) {
    EXPECT_FALSE(truthValue(text)) << text;
  }
}

TEST(PlistValue, NumbersOfDifferentTypesAreEqual) {
  EXPECT_EQ(Value(1), Value(1.0));
  EXPECT_EQ(Value(1), Value(true));
  EXPECT_EQ(Value(1.0), Value(true));
  EXPECT_EQ(Value(0), Value(-0.0));
  EXPECT_EQ(Value(0), Value(false));
  EXPECT_EQ(Value(18446744073709549568.0), Value(std::uint64_t{18446744073709549568U}));
  EXPECT_EQ(Value(std::nan("")), Value(std::nan("")));
  EXPECT_EQ(Value(Date{std::nan("")}), Value(Date{std::nan("")}));
}

TEST(PlistValue, DifferentValuesDiffer) {
  EXPECT_NE(Value(1), Value("1"));
  EXPECT_NE(Value(1), Value(2));
  EXPECT_NE(Value(1), Value(1.5));
  EXPECT_NE(Value(-1), Value(kLargest));
  EXPECT_NE(Value(std::nan("")), Value(0));
  EXPECT_NE(Value(kInfinity), Value(-kInfinity));
  // The nearest real is no equal of an integer that it cannot hold.
  EXPECT_NE(Value(std::int64_t{9007199254740993}), Value(9007199254740992.0));
  EXPECT_NE(Value(kLargest), Value(18446744073709551616.0));
  EXPECT_NE(Value(""), Value(Data{}));
  EXPECT_NE(Value(Date{1}), Value(1));
  EXPECT_NE(Value(Date{1}), Value(Date{std::nan("")}));
  EXPECT_NE(Value(Array{}), Value(Dictionary{}));
}

TEST(PlistValue, ComparisonIsDeep) {
  const Dictionary settings{{"NiceValue", -5}, {"List", Array{1, Dictionary{{"a", Data{"x"}}}}}};
  EXPECT_EQ(
      Value(settings),
      Value(Dictionary{{"NiceValue", -5.0}, {"List", Array{true, Dictionary{{"a", Data{"x"}}}}}}));
  EXPECT_NE(Value(settings),
            Value(Dictionary{{"NiceValue", -5}, {"List", Array{1, Dictionary{{"a", Data{"y"}}}}}}));
  EXPECT_NE(Value(settings), Value(Dictionary{{"NiceValue", -5}}));
}

TEST(PlistValue, SmallUnsignedNumbersAreStoredSigned) {
  EXPECT_NE(Value(std::uint64_t{5}).as<std::int64_t>(), nullptr);
  EXPECT_NE(Value(kLargest).as<std::uint64_t>(), nullptr);
}

}  // namespace
}  // namespace vorlatch::plist
