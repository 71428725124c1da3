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

std::string number(int i) {
  return std::to_string(i);
}

std::string xml(const std::string& targets, const std::string& rest = "") {
  return "<plist><dict><key>Enabled</key><true/><key>AppConfigs</key><dict>" + targets + "</dict>" +
         rest + "</dict></plist>";
}

// Settings with a watch timer.
std::string withTimer(int interval_s) {
  return "<dict><key>CheckInterval</key><integer>" + number(interval_s) + "</integer></dict>";
}

std::string letters(int count, int content) {
  return std::string(static_cast<std::size_t>(count), static_cast<char>('a' + content));
}

// One of many alike parts of a file.
using Part = std::function<std::string(int i, int content)>;

std::string repeated(int count, int content, const Part& part) {
  std::string all;
  for (int i = 0; i < count; ++i) all += part(i, content);
  return all;
}

// Shapes of hostile files, of any size. Two contents of one size differ in every target.
struct Shape {
  const char* name;
  std::function<std::string(int size, int content)> make;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << shape.name;
}

// Many targets.
Shape targets(const char* name, const Part& target) {
  return {name, [target](int size, int content) { return xml(repeated(size, content, target)); }};
}

// One running target with a long remark, and perhaps settings behind it.
Shape remark(const char* name, const std::string& begin, const Part& part, const std::string& end,
             const std::string& rest = "") {
  return {name, [=](int size, int content) {
            return xml("<key>process-1</key><dict><key>Remark</key>" + begin +
                       repeated(size, content, part) + end + rest + "</dict>");
          }};
}

Part either(const std::string& one, const std::string& other) {
  return [=](int /*i*/, int content) { return content == 0 ? one : other; };
}

// Many times this, and the content only once.
Part withContentLast(const std::string& text) {
  return [text](int i, int content) { return (i == 0 ? number(content) : "") + text; };
}

// A binary list in which a long array has one array in all its places.
std::string sharedObjects(int size, int content) {
  BinaryBuilder list{.objects = {}, .reference_size = 2};
  list.objects = {list.array(std::vector<std::uint64_t>(static_cast<std::size_t>(size), 1)),
                  list.array(std::vector<std::uint64_t>(100, 2)),
                  BinaryBuilder::ascii(letters(20, content))};
  return list.build();
}

std::string wideText(int size, int content, const std::string& one, const std::string& other) {
  std::string units;
  for (int i = 0; i < size; ++i) units += content == 0 ? one : other;
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
                  wideText(size, content, "\x4E\x2D", "\x66\x2F")};
  return list.build();
}

// Surrogates without their halves, which the parser replaces.
std::string wideTexts(int size, int content) {
  BinaryBuilder list{.objects = {}, .reference_size = 2};
  list.objects = {wideText(size, content, std::string("\xD8\0", 2), "\x4E\x2D")};
  return list.build();
}

std::string unknownKeys(int size, int content) {
  return xml("", repeated(size, content, [](int i, int value) {
               return "<key>" + number(i) + "</key><integer>" + number(value) + "</integer>";
             }));
}

const std::vector<Shape>& shapes() {
  static const std::string many_lists = [] {
    std::string begins;
    std::string ends;
    for (int i = 0; i < 100; ++i) {
      begins += "<array>";
      ends += "</array>";
    }
    return begins + ends;
  }();
  static const std::vector<Shape> all{
      targets("EmptyTargets",
              [](int i, int content) {
                return "<key>" + number(content) + "-" + number(i) + "</key><dict/>";
              }),
      targets("TargetsThatChange",
              [](int i, int content) {
                return "<key>" + number(i) + "</key><dict><key>" + number(content) +
                       "</key><true/></dict>";
              }),
      targets("TargetsWithTimers",
              [](int i, int content) {
                return "<key>" + number(i) + "</key>" + withTimer(6000 + content);
              }),
      targets("RunningTargetsWithTimers",
              [](int i, int content) {
                return "<key>process-" + number(i) + "</key>" + withTimer(6000 + content);
              }),
      targets("TargetsWithLongNames",
              [](int i, int content) {
                return "<key>" + letters(1000, content) + number(i) + "</key>" + withTimer(6000);
              }),
      {"OneTargetOfALongName",
       [](int size, int content) {
         return xml("<key>" + letters(size, content) + "</key>" + withTimer(600));
       }},
      remark(
          "OneTargetOfManyKeys", "<true/>",
          [](int i, int content) {
            return "<key>" + number(i) + "</key><integer>" + number(content) + "</integer>";
          },
          ""),
      remark("OneTargetOfALongText", "<string>", either("a", "b"), "</string>"),
      remark("OneTargetOfAnArray", "<array>", either("<true/>", "<false/>"), "</array>"),
      remark("OneTargetOfEmptyArrays", "<array>", either("<array/>", "<dict/>"), "</array>"),
      remark("TextsWithEntities", "<array>",
             either("<string>&amp;&lt;0</string>", "<string>&amp;&lt;1</string>"), "</array>"),
      remark("Data", "<data>", either("aaaa", "bbbb"), "</data>"),
      remark("DeepLists", "<array>", either(many_lists, many_lists), "</array>"),
      {"SharedObjectsOfABinaryList", sharedObjects},
      remark("CommentsInATextAndAKeyBehind", "<string>x", withContentLast("<!---->"), "</string>",
             "<key>StripManaged</key><true/>"),
      remark("CharacterDataInAText", "<string>", withContentLast("<![CDATA[x]]>"), "</string>"),
      {"AWideRemarkOfABinaryList", wideRemark},
      {"WideTextsOfABinaryList", wideTexts},
      {"UnknownTopLevelKeys", unknownKeys},
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
