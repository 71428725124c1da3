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
using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;
using test::BinaryBuilder;

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n"
    "<dict>\n";
constexpr const char* kTargets =
    "\t<key>AppConfigs</key>\n"
    "\t<dict>\n"
    "\t\t<key>alpha</key>\n"
    "\t\t<dict>\n"
    "\t\t\t<key>Own</key>\n"
    "\t\t\t<real>2.5</real>\n"
    "\t\t</dict>\n"
    "\t</dict>\n";
constexpr const char* kOthers =
    "\t<key>array</key>\n"
    "\t<array>\n"
    "\t\t<integer>1</integer>\n"
    "\t\t<array/>\n"
    "\t\t<dict/>\n"
    "\t\t<string></string>\n"
    "\t</array>\n"
    "\t<key>data</key>\n"
    "\t<data>\n"
    "\tAAH/\n"
    "\t</data>\n"
    "\t<key>date</key>\n"
    "\t<date>2024-05-01T12:34:56Z</date>\n"
    "\t<key>early</key>\n"
    "\t<date>1970-01-01T00:00:00Z</date>\n"
    "\t<key>largest</key>\n"
    "\t<integer>18446744073709551615</integer>\n"
    "\t<key>real a</key>\n"
    "\t<real>0.10000000000000001</real>\n"
    "\t<key>real b</key>\n"
    "\t<real>0.33333333333333331</real>\n"
    "\t<key>real c</key>\n"
    "\t<real>1.0000000000000001e+300</real>\n"
    "\t<key>real d</key>\n"
    "\t<real>1</real>\n"
    "\t<key>smallest</key>\n"
    "\t<integer>-9223372036854775808</integer>\n"
    "\t<key>text</key>\n"
    "\t<string> 微信 &lt;&amp;&gt; \"x\"\n </string>\n"
    "\t<key>微信 &lt;\x01\n&gt;</key>\n"
    "\t<false/>\n"
    "</dict>\n"
    "</plist>\n";

TEST(EditKeeps, EveryOtherByteOfAnXmlFile) {
  EditStory story;
  writeAll(story.preferencesFile(), std::string(kHead) + kTargets + kOthers);
  EXPECT_EQ(story.edit({"enable"}), (EditResult{{0, "Enabled: (none) -> true\n", ""},
                                                std::string(kHead) + kTargets +
                                                    "\t<key>Enabled</key>\n\t<true/>\n" + kOthers,
                                                1}));
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

TEST(EditKeeps, EveryOtherValueOfEitherForm) {
  EditStory story;
  Dictionary after = oneOfEverything();
  // A real of the same number becomes the integer that it is set to.
  after.at("AppConfigs")
      .as<Dictionary>()
      ->at("alpha")
      .as<Dictionary>()
      ->insert_or_assign("NiceValue", 1);
  const Output output{0,
                      "AppConfigs / alpha / NiceValue: 1 -> 1\n"
                      "the daemon is switched off; vorlatchctl enable switches it on\n",
                      ""};
  for (const auto& write : {platform::writeXmlPropertyList, platform::writeBinaryPropertyList}) {
    writeAll(story.preferencesFile(), write(oneOfEverything()));
    EXPECT_EQ(story.edit({"set", "alpha", "NiceValue=1"}), (EditResult{output, write(after), 1}));
    EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  }
  EXPECT_TRUE(story.bytes().starts_with("bplist00"));
}

TEST(EditKeeps, ABinaryFileBinaryInEveryEdit) {
  EditStory story;
  for (const Arguments& arguments : std::vector<Arguments>{{"set", "beta", "NiceValue=-1"},
                                                           {"unset", "alpha", "Own"},
                                                           {"remove", "alpha"},
                                                           {"enable"},
                                                           {"preset"}}) {
    writeAll(story.preferencesFile(), platform::writeBinaryPropertyList(oneOfEverything()));
    const EditResult result = story.edit(arguments);
    EXPECT_EQ(result.output.status, 0) << arguments[0];
    EXPECT_TRUE(result.bytes.starts_with("bplist00")) << arguments[0];
    EXPECT_NE(result.bytes, platform::writeBinaryPropertyList(oneOfEverything()));
  }
}

// A file of any mode becomes one that every program may edit.
TEST(EditKeeps, NoModeThatShutsOthersOut) {
  EditStory story;
  story.writeTargets({});
  std::filesystem::permissions(story.preferencesFile(), std::filesystem::perms(0600));
  EXPECT_EQ(story.edit({"disable"}).output, (Output{0, "Enabled: true -> false\n", ""}));
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
}

std::string real(double value) {
  std::uint64_t bits = 0;
  static_assert(sizeof(bits) == sizeof(value));
  std::memcpy(&bits, &value, sizeof(bits));
  return test::bigEndian(bits, 8);
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
       {binaryWith("\x33" + real(63113904000)), binaryWith("\x33" + real(-63114076800)),
        binaryWith("\x33" + real(736259696.1234567)), binaryWith("\x33" + real(-1.5)),
        xmlWith("<date>4001-01-01T00:00:00Z</date>"), xmlWith("<date>2100-01-01T00:00:00Z</date>"),
        xmlWith("<array><date>0001-01-01T00:00:00Z</date></array>")}) {
    writeAll(story.preferencesFile(), bytes);
    Dictionary expected = readDictionary(story.preferencesFile());
    expected.insert_or_assign("Enabled", true);
    EXPECT_EQ(story.edit({"enable"}).output, (Output{0, "Enabled: (none) -> true\n", ""}));
    EXPECT_EQ(plist::Value(readDictionary(story.preferencesFile())), plist::Value(expected));
  }
}

TEST(EditRefuses, ToLoseWhatThePlatformDoesNotReadWhole) {
  EditStory story;
  for (const std::string& bytes :
       {binaryWith("\x53"s + "a\0b"s), binaryWith("\x62"s + "\0a\0\0"s)}) {
    writeAll(story.preferencesFile(), bytes);
    const FileVersion untouched = story.version();
    EXPECT_EQ(story.edit({"enable"}),
              (EditResult{{3, "",
                           "vorlatchctl: " + story.preferencesFile() +
                               " would hold something that cannot be written as it is; nothing is "
                               "changed\n"},
                          bytes,
                          0}));
    EXPECT_EQ(story.version(), untouched);
    EXPECT_EQ(story.filesBeside(), Lines{"com.zel.vorlatch.plist"});
    // Nothing is lost by looking, nor by an edit that changes nothing.
    EXPECT_EQ(story.edit({"enable", "--dry-run"}).output.status, 3);
    EXPECT_EQ(story.edit({"preset", "--replace-file"}).output.status, 0);
  }
}

TEST(EditRefuses, ToWriteMoreThanTheDaemonReads) {
  EditStory story;
  story.writePreferences({{"Padding", std::string(500'000, 'x')}});
  EXPECT_EQ(story.edit({"set", "last", "NiceValue=1"}).output.status, 0);
  const FileVersion untouched = story.version();
  EXPECT_EQ(story.edit({"set", "last", "Remark=" + std::string(40'000, 'x')}),
            (EditResult{{3, "",
                         "vorlatchctl: " + story.preferencesFile() +
                             " would be larger than what the daemon reads; nothing is changed\n"},
                        untouched.bytes,
                        0}));
  EXPECT_EQ(story.version(), untouched);
}

TEST(EditKeeps, DatesAndTextsThatThePlatformReadsWhole) {
  EditStory story;
  for (const std::string& object :
       {"\x33" + real(0), "\x33" + real(736259696), "\x33" + real(-978307200),
        "\x62"s + "\x5f\x01\x4e\x2d"s, BinaryBuilder::ascii(std::string(14, 'x')),
        "\x42"s + "\0\0"s}) {
    writeAll(story.preferencesFile(), binaryWith(object));
    const EditResult result = story.edit({"enable"});
    EXPECT_EQ(result.output, (Output{0, "Enabled: (none) -> true\n", ""}));
    EXPECT_NE(result.bytes.find(object), std::string::npos);
  }
}

}  // namespace
}  // namespace vorlatch::tests
