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

std::string xml(const std::string& targets, const std::string& rest = "") {
  return "<plist><dict><key>Enabled</key><true/><key>AppConfigs</key><dict>" + targets + "</dict>" +
         rest + "</dict></plist>";
}

std::string repeated(int count, const std::function<std::string(int)>& text) {
  std::string all;
  for (int i = 0; i < count; ++i) all += text(i);
  return all;
}

// One running target with this remark.
std::string xmlOfRemark(const std::string& remark) {
  return xml("<key>process-1</key><dict><key>Remark</key>" + remark + "</dict>");
}

// Shapes of hostile files, of any size. Two contents of one size differ in every target.
struct Shape {
  const char* name;
  std::function<std::string(int size, int content)> make;
};

std::ostream& operator<<(std::ostream& stream, const Shape& shape) {
  return stream << shape.name;
}

std::string number(int i) {
  return std::to_string(i);
}

const std::vector<Shape>& shapes() {
  static const std::vector<Shape> all{
      {"EmptyTargets",
       [](int size, int content) {
         return xml(repeated(size, [content](int i) {
           return "<key>" + number(content) + "-" + number(i) + "</key><dict/>";
         }));
       }},
      {"TargetsThatChange",
       [](int size, int content) {
         return xml(repeated(size, [content](int i) {
           return "<key>" + number(i) + "</key><dict><key>" + number(content) +
                  "</key><true/></dict>";
         }));
       }},
      {"TargetsWithTimers",
       [](int size, int content) {
         return xml(repeated(size, [content](int i) {
           return "<key>" + number(i) + "</key><dict><key>CheckInterval</key><integer>" +
                  number(6000 + content) + "</integer></dict>";
         }));
       }},
      {"RunningTargetsWithTimers",
       [](int size, int content) {
         return xml(repeated(size, [content](int i) {
           return "<key>process-" + number(i) + "</key><dict><key>CheckInterval</key><integer>" +
                  number(6000 + content) + "</integer></dict>";
         }));
       }},
      {"TargetsWithLongNames",
       [](int size, int content) {
         return xml(repeated(size, [content](int i) {
           return "<key>" + std::string(1000, static_cast<char>('a' + content)) + number(i) +
                  "</key><dict><key>CheckInterval</key><integer>6000</integer></dict>";
         }));
       }},
      {"OneTargetOfALongName",
       [](int size, int content) {
         return xml("<key>" +
                    std::string(static_cast<std::size_t>(size), static_cast<char>('a' + content)) +
                    "</key><dict><key>CheckInterval</key><integer>600</integer></dict>");
       }},
      {"OneTargetOfManyKeys",
       [](int size, int content) {
         return xml("<key>process-1</key><dict>" +
                    repeated(size,
                             [content](int i) {
                               return "<key>" + number(i) + "</key><integer>" + number(content) +
                                      "</integer>";
                             }) +
                    "</dict>");
       }},
      {"OneTargetOfALongText",
       [](int size, int content) {
         return xmlOfRemark(
             "<string>" +
             std::string(static_cast<std::size_t>(size), static_cast<char>('a' + content)) +
             "</string>");
       }},
      {"OneTargetOfAnArray",
       [](int size, int content) {
         return xmlOfRemark(
             "<array>" +
             repeated(size,
                      [content](int /*i*/) { return content == 0 ? "<true/>" : "<false/>"; }) +
             "</array>");
       }},
      {"OneTargetOfEmptyArrays",
       [](int size, int content) {
         return xmlOfRemark(
             "<array>" +
             repeated(size,
                      [content](int /*i*/) { return content == 0 ? "<array/>" : "<dict/>"; }) +
             "</array>");
       }},
      {"TextsWithEntities",
       [](int size, int content) {
         return xmlOfRemark("<array>" +
                            repeated(size,
                                     [content](int /*i*/) {
                                       return "<string>&amp;&lt;" + number(content) + "</string>";
                                     }) +
                            "</array>");
       }},
      {"Data",
       [](int size, int content) {
         return xmlOfRemark(
             "<data>" +
             std::string(static_cast<std::size_t>(size) * 4, static_cast<char>('a' + content)) +
             "</data>");
       }},
      {"DeepLists",
       [](int size, int content) {
         return xmlOfRemark(
             "<array>" +
             repeated(size,
                      [content](int /*i*/) {
                        return repeated(100, [](int) { return std::string("<array>"); }) +
                               number(content).substr(0, 0) +
                               repeated(100, [](int) { return std::string("</array>"); });
                      }) +
             "</array>");
       }},
      {"SharedObjectsOfABinaryList",
       [](int size, int content) {
         BinaryBuilder list{.objects = {}, .reference_size = 2};
         list.objects = {list.array(std::vector<std::uint64_t>(static_cast<std::size_t>(size), 1)),
                         list.array(std::vector<std::uint64_t>(100, 2)),
                         BinaryBuilder::ascii(std::string(20, static_cast<char>('a' + content)))};
         return list.build();
       }},
      {"CommentsInATextAndAKeyBehind",
       [](int size, int content) {
         return xml("<key>process-1</key><dict><key>Remark</key><string>x" +
                    repeated(size, [](int /*i*/) { return "<!---->"; }) + number(content) +
                    "</string><key>StripManaged</key><true/></dict>");
       }},
      {"CharacterDataInAText",
       [](int size, int content) {
         return xmlOfRemark("<string>" + repeated(size, [](int /*i*/) { return "<![CDATA[x]]>"; }) +
                            number(content) + "</string>");
       }},
      {"AWideRemarkOfABinaryList",
       [](int size, int content) {
         BinaryBuilder list{.objects = {}, .reference_size = 1};
         std::string units;
         for (int i = 0; i < size; ++i) units += content == 0 ? "\x4E\x2D" : "\x66\x2F";
         list.objects = {list.dictionary({1, 2}, {3, 4}),
                         BinaryBuilder::ascii("Enabled"),
                         BinaryBuilder::ascii("AppConfigs"),
                         "\x09",
                         list.dictionary({5}, {6}),
                         BinaryBuilder::ascii("process-1"),
                         list.dictionary({7, 8}, {9, 3}),
                         BinaryBuilder::ascii("Remark"),
                         BinaryBuilder::ascii("StripManaged"),
                         BinaryBuilder::marker(0x6, static_cast<std::uint64_t>(size)) + units};
         return list.build();
       }},
      {"WideTextsOfABinaryList",
       [](int size, int content) {
         BinaryBuilder list{.objects = {}, .reference_size = 2};
         std::string units;
         for (int i = 0; i < size; ++i)
           units += content == 0 ? std::string("\xD8\0", 2) : "\x4E\x2D";
         list.objects = {BinaryBuilder::marker(0x6, static_cast<std::uint64_t>(size)) + units};
         return list.build();
       }},
      {"UnknownTopLevelKeys",
       [](int size, int content) {
         return xml("", repeated(size, [content](int i) {
                      return "<key>" + number(i) + "</key><integer>" + number(content) +
                             "</integer>";
                    }));
       }},
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
