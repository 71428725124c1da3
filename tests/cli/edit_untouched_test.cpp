// What an edit is not about stays in the file as it was, in the file's own form; what the platform
// could not write back as it was keeps the edit from being made.
#include <cmath>
#include <cstring>
#include <filesystem>
#include <limits>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "platform/property_list.h"
#include "tests/base/binary_builder.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using namespace std::string_literals;
using plist::Data;
using plist::Date;
using test::BinaryBuilder;

// An entry of the outermost dictionary in an XML file; in its value a control character stands for
// a line feed and so many tabs.
std::string entry(const std::string& key, const std::string& value) {
  std::string text = "\t<key>" + key + "</key>\n\t";
  for (const char c : value) {
    const bool is_break = c >= 1 && c <= 4;
    text += is_break ? "\n" + std::string(static_cast<std::size_t>(c), '\t') : std::string(1, c);
  }
  return text + "\n";
}

TEST(EditKeeps, EveryOtherByteOfAnXmlFile) {
  EditStory story;
  const std::string head = R"(<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" "http://www.apple.com/DTDs/PropertyList-1.0.dtd">
<plist version="1.0">
<dict>
)" + entry("AppConfigs",
           "<dict>\2<key>alpha</key>\2<dict>\3<key>Own</key>\3<real>2.5</real>\2</dict>\1</dict>");
  std::string others =
      entry("array",
            "<array>\2<integer>1</integer>\2<array/>\2<dict/>\2<string></string>\1</array>") +
      entry("data", "<data>\1AAH/\1</data>") + entry("date", "<date>2024-05-01T12:34:56Z</date>") +
      entry("early", "<date>1970-01-01T00:00:00Z</date>") +
      entry("largest", "<integer>18446744073709551615</integer>") +
      entry("real a", "<real>0.10000000000000001</real>") +
      entry("real b", "<real>0.33333333333333331</real>") +
      entry("real c", "<real>1.0000000000000001e+300</real>") + entry("real d", "<real>1</real>") +
      entry("smallest", "<integer>-9223372036854775808</integer>") +
      entry("text", "<string> 微信 &lt;&amp;&gt; \"x\"\n </string>") +
      entry("微信 &lt;\x01\n&gt;", "<false/>") + "</dict>\n</plist>\n";
  writeAll(story.preferencesFile(), head + others);
  EXPECT_EQ(story.edit("enable"), (EditResult{"Enabled: (none) -> true\n",
                                              head + entry("Enabled", "<true/>") + others, 1}));
}

Dictionary oneOfEverything() {
  return {{"AppConfigs", Dictionary{{"alpha", Dictionary{{"Own", 2.5}, {"NiceValue", 1.0}}}}},
          {"array", Array{1, Array{}, Dictionary{}, ""}},
          {"data", Data{"\x00\x01\xFF"s}},
          {"no data", Data{}},
          {"date", Date{1234}},
          {"early", Date{-978307200}},
          {"infinity", std::numeric_limits<double>::infinity()},
          {"not a number", std::nan("")},
          {"large real", 1e300},
          {"third", 1.0 / 3},
          {"tenth", 0.1},
          {"smallest", INT64_MIN},
          {"largest", std::numeric_limits<std::uint64_t>::max()},
          {"text", "微信 <&> \"x\"\n\x01"},
          {"微信\n\x1b[31m", false},
          {"", Dictionary{{"", true}}}};
}

// A real of the same number becomes the integer that it is set to.
TEST(EditKeeps, EveryOtherValueOfEitherForm) {
  EditStory story;
  Dictionary after = oneOfEverything();
  after.insert_or_assign("AppConfigs",
                         Dictionary{{"alpha", Dictionary{{"Own", 2.5}, {"NiceValue", 1}}}});
  for (const auto& write : {platform::writeXmlPropertyList, platform::writeBinaryPropertyList}) {
    writeAll(story.preferencesFile(), write(oneOfEverything()));
    EXPECT_EQ(story.edit("set alpha NiceValue=1"),
              (EditResult{std::string("AppConfigs / alpha / NiceValue: 1 -> 1\n") + kOffHint,
                          write(after), 1}));
  }
}

TEST(EditKeeps, ABinaryFileBinary) {
  EditStory story;
  const std::string before = platform::writeBinaryPropertyList(oneOfEverything());
  for (const char* line :
       {"set beta NiceValue=-1", "unset alpha Own", "remove alpha", "enable", "preset"}) {
    writeAll(story.preferencesFile(), before);
    const EditResult result = story.edit(line);
    EXPECT_TRUE(result.written && result.written->starts_with("bplist00")) << result;
    EXPECT_EQ(result.posts, 1) << result;
  }
}

std::string date(double seconds) {
  std::uint64_t bits = 0;
  static_assert(sizeof(bits) == sizeof(seconds));
  std::memcpy(&bits, &seconds, sizeof(bits));
  return "\x33" + test::bigEndian(bits, 8);
}

// A binary dictionary of one entry.
std::string binaryWith(const std::string& object) {
  BinaryBuilder list{.objects = {"", BinaryBuilder::ascii("key"), object}};
  list.objects[0] = list.dictionary({1}, {2});
  return list.build();
}

std::string xmlWith(const std::string& element) {
  return "<plist version=\"1.0\"><dict><key>key</key>" + element + "</dict></plist>";
}

TEST(EditKeeps, DatesOfEveryTime) {
  EditStory story;
  for (const std::string& bytes :
       {binaryWith(date(63113904000)), binaryWith(date(-63114076800)),
        binaryWith(date(736259696.1234567)), binaryWith(date(-1.5)),
        xmlWith("<date>4001-01-01T00:00:00Z</date>"), xmlWith("<date>2100-01-01T00:00:00Z</date>"),
        xmlWith("<array><date>0001-01-01T00:00:00Z</date></array>")}) {
    writeAll(story.preferencesFile(), bytes);
    Dictionary expected = readDictionary(story.preferencesFile());
    expected.insert_or_assign("Enabled", true);
    EXPECT_EQ(story.answer("enable"), "Enabled: (none) -> true\n");
    EXPECT_EQ(plist::Value(readDictionary(story.preferencesFile())), plist::Value(expected));
  }
}

TEST(EditKeeps, ObjectsThatThePlatformReadsWhole) {
  EditStory story;
  for (const std::string& object :
       {date(0), date(736259696), date(-978307200), "\x62"s + "\x5f\x01\x4e\x2d"s,
        BinaryBuilder::ascii(std::string(14, 'x')), "\x42"s + "\0\0"s}) {
    writeAll(story.preferencesFile(), binaryWith(object));
    EXPECT_EQ(story.answer("enable"), "Enabled: (none) -> true\n");
    EXPECT_NE(story.bytes().find(object), std::string::npos);
  }
}

// What would be lost stays, unless the whole file is replaced.
TEST(EditRefuses, ToLoseWhatIsNotReadWhole) {
  EditStory story;
  for (const std::string& text : {"\x53"s + "a\0b"s, "\x62"s + "\0a\0\0"s}) {
    writeAll(story.preferencesFile(), binaryWith(text));
    story.expectRefusal({"enable"}, "--dry-run",
                        "err: vorlatchctl: {preferences} would hold something that cannot be "
                        "written as it is; nothing is changed\nexit 3\n");
    EXPECT_EQ(story.run({"preset", "--replace-file"}).status, 0);
  }
}

TEST(EditRefuses, ToWriteMoreThanTheDaemonReads) {
  EditStory story;
  story.writePreferences({{"Padding", std::string(500'000, 'x')}});
  EXPECT_EQ(story.run({"set", "last", "NiceValue=1"}).status, 0);
  EXPECT_EQ(
      story.edit("set last Remark=" + std::string(40'000, 'x')),
      EditResult{"err: vorlatchctl: {preferences} would be larger than what the daemon reads; "
                 "nothing is changed\nexit 3\n"});
}

}  // namespace
}  // namespace vorlatch::tests
