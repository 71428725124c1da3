// The daemon's heap must stay small, because launchd gives it only a few megabytes.
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "config/property_list_guard.h"
#include "tests/base/binary_builder.h"
#include "tests/scenario/heap_day.h"

namespace vorlatch {
namespace {

using plist::Dictionary;
using test::BinaryBuilder;
using tests::HeapDay;
using tests::ordinaryPreferences;
using namespace std::chrono_literals;

constexpr std::size_t kMegabyte = 1'000'000;

// A large Info.plist of an app, of more than 256 kB.
std::string largeInfoPlist(const std::string& identifier) {
  Dictionary info{{"CFBundleIdentifier", identifier}};
  for (int i = 0; i < 2500; ++i) {
    info.insert_or_assign("UsageDescription" + std::to_string(i),
                          "The app would like to use this on behalf of the user");
  }
  return platform::writeXmlPropertyList(info);
}

TEST(Heap, TwoHundredTargetsTakeLessThanAMegabyte) {
  HeapDay day;
  EXPECT_LT(day.peakBytes(ordinaryPreferences(200, -5), ordinaryPreferences(200, -6), 40min),
            kMegabyte);
  EXPECT_EQ(day.heldTargets(), 200U);
}

TEST(Heap, Reads500TargetsAndALargeInfoPlist) {
  HeapDay day;
  const std::string info = largeInfoPlist("org.app.process-0");
  EXPECT_GT(info.size(), 256'000U);
  tests::writeAll(day.rootPath("/Applications/App0.app/Info.plist"), info);
  EXPECT_LT(day.peakBytes(ordinaryPreferences(500, -5), ordinaryPreferences(500, -6), 40min),
            3 * kMegabyte);
  EXPECT_EQ(day.heldTargets(), 500U);
}

// Shapes of hostile files, of any size. Two contents of one size differ in every target.
struct Shape {
  const char* name;
  std::function<std::string(int size, int content)> make;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << shape.name;
}

// Replaces every `mark` by the number.
std::string filledIn(std::string text, char mark, int number) {
  const std::string digits = std::to_string(number);
  for (std::size_t at = 0; (at = text.find(mark, at)) != text.npos; at += digits.size()) {
    text.replace(at, 1, digits);
  }
  return text;
}

// A file in which a part is repeated, each with its own number in place of '#'. The content stands
// in place of '@'.
Shape repeated(const char* name, const std::string& begin, const std::string& part,
               const std::string& end) {
  return {name, [=](int size, int content) {
            const std::string each = filledIn(part, '@', content);
            std::string file = filledIn(begin, '@', content);
            for (int i = 0; i < size; ++i) file += filledIn(each, '#', i);
            return file + filledIn(end, '@', content);
          }};
}

const std::string kBegin = "<plist><dict><key>Enabled</key><true/><key>AppConfigs</key><dict>";
const std::string kEnd = "</dict></dict></plist>";

// Many targets.
Shape targets(const char* name, const std::string& target) {
  return repeated(name, kBegin, target, kEnd);
}

// One running target with a long remark, and perhaps settings behind it.
Shape remark(const char* name, const std::string& begin, const std::string& part,
             const std::string& end) {
  return repeated(name,
                  kBegin + "<key>process-1</key><dict><key>NiceValue</key><integer>@</integer>" +
                      "<key>Remark</key>" + begin,
                  part, end + "</dict>" + kEnd);
}

// A binary list in which a long array has one array in all its places.
std::string sharedObjects(int size, int content) {
  BinaryBuilder list{.objects = {}, .reference_size = 2};
  list.objects = {list.array(std::vector<std::uint64_t>(static_cast<std::size_t>(size), 1)),
                  list.array(std::vector<std::uint64_t>(100, 2)),
                  BinaryBuilder::ascii("text " + std::to_string(content))};
  return list.build();
}

// A text in UTF-16: the same unit `size` times.
std::string wideText(int size, const std::string& unit) {
  std::string units;
  for (int i = 0; i < size; ++i) units += unit;
  return BinaryBuilder::marker(0x6, static_cast<std::uint64_t>(size)) + units;
}

// One running target with a long remark in UTF-16.
std::string wideRemark(int size, int content) {
  BinaryBuilder list{.objects = {}, .reference_size = 1};
  list.objects = {list.dictionary({1, 2}, {3, 4}),
                  BinaryBuilder::ascii("Enabled"),
                  BinaryBuilder::ascii("AppConfigs"),
                  "\x09",
                  list.dictionary({5}, {6}),
                  BinaryBuilder::ascii("process-1"),
                  list.dictionary({7, 8}, {9, 3}),
                  BinaryBuilder::ascii("Remark"),
                  BinaryBuilder::ascii("StripManaged"),
                  wideText(size, content == 0 ? "\x4E\x2D" : "\x66\x2F")};
  return list.build();
}

// Surrogates without their halves, which the parser replaces.
std::string wideTexts(int size, int content) {
  const std::string unit = content == 0 ? std::string("\xD8\0", 2) : "\x4E\x2D";
  return BinaryBuilder{.objects = {wideText(size, unit)}, .reference_size = 2}.build();
}

std::string lists(int depth) {
  return depth == 0 ? "" : "<array>" + lists(depth - 1) + "</array>";
}

const std::vector<Shape>& shapes() {
  static const std::string timer = "<dict><key>CheckInterval</key><integer>600@</integer></dict>";
  static const std::vector<Shape> all{
      targets("EmptyTargets", "<key>@-#</key><dict/>"),
      targets("TargetsThatChange", "<key>#</key><dict><key>@</key><true/></dict>"),
      targets("TargetsWithTimers", "<key>#</key>" + timer),
      targets("RunningTargetsWithTimers", "<key>process-#</key>" + timer),
      targets("TargetsWithLongNames", "<key>" + std::string(1000, '@') + "#</key>" + timer),
      repeated("OneTargetOfALongName", kBegin + "<key>", "@", "</key>" + timer + kEnd),
      remark("OneTargetOfManyKeys", "<true/>", "<key>#</key><integer>@</integer>", ""),
      remark("OneTargetOfALongText", "<string>", "@", "</string>"),
      remark("OneTargetOfAnArray", "<array>", "<true/>", "</array>"),
      remark("OneTargetOfEmptyArrays", "<array>", "<array/>", "</array>"),
      remark("TextsWithEntities", "<array>", "<string>&amp;&lt;@</string>", "</array>"),
      remark("Data", "<data>", "aaa@", "</data>"),
      remark("DeepLists", "<array>", lists(100), "</array>"),
      {"SharedObjectsOfABinaryList", sharedObjects},
      remark("CommentsInATextAndAKeyBehind", "<string>x", "<!---->",
             "</string><key>StripManaged</key><true/>"),
      remark("CharacterDataInAText", "<string>", "<![CDATA[x]]>", "</string>"),
      {"AWideRemarkOfABinaryList", wideRemark},
      {"WideTextsOfABinaryList", wideTexts},
      repeated("UnknownTopLevelKeys", kBegin + "</dict>", "<key>#</key><integer>@</integer>",
               "</dict></plist>"),
  };
  return all;
}

// The largest file of this shape that the daemon accepts.
int largestOf(const Shape& shape) {
  const auto is_read = [&shape](int size) {
    const std::optional<PropertyListSize> measured = measurePropertyList(shape.make(size, 1));
    return measured && measured->isWithin(kPropertyListBound);
  };
  int step = 1;
  while (is_read(step)) step *= 2;
  int most = 0;
  for (; step > 0; step /= 2) {
    if (is_read(most + step)) most += step;
  }
  return most;
}

class LargestFile : public testing::TestWithParam<Shape> {};

TEST_P(LargestFile, StaysBelowThreeMegabytes) {
  const Shape& shape = GetParam();
  const int size = largestOf(shape);
  const std::string one = shape.make(size, 0);
  ASSERT_TRUE(platform::parsePropertyList(one));
  HeapDay day;
  // The most expensive Info.plist. Each scan of the processes reads it again, because it contains
  // no identifier.
  const Shape& info = shapes().back();
  tests::writeAll(day.rootPath("/Applications/App0.app/Info.plist"), info.make(largestOf(info), 0));
  EXPECT_LT(day.peakBytes(one, shape.make(size, 1), 40min), 3 * kMegabyte);
}

INSTANTIATE_TEST_SUITE_P(Heap, LargestFile, testing::ValuesIn(shapes()),
                         [](const auto& shape) { return std::string(shape.param.name); });

}  // namespace
}  // namespace vorlatch
