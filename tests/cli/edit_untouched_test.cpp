// An edit keeps everything else in the file, in the file's own form, or is refused.
#include <cstring>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/base/binary_builder.h"
#include "tests/base/describe.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using namespace std::string_literals;
using test::BinaryBuilder;

// A real of the same number becomes the integer that it is set to.
TEST(EditKeeps, EveryOtherValueOfEitherForm) {
  EditStory story;
  const auto everything_with = [](const plist::Value& nice_value) {
    Dictionary preferences = test::oneOfEverything();
    const Dictionary alpha{{"Own", 2.5}, {"NiceValue", nice_value}};
    preferences.emplace("AppConfigs", Dictionary{{"alpha", alpha}});
    preferences.emplace("\x1b[31m", "\x01");
    return preferences;
  };
  for (const auto& write : {platform::writeXmlPropertyList, platform::writeBinaryPropertyList}) {
    writeAll(story.preferencesFile(), write(everything_with(1.0)));
    EXPECT_EQ(story.edit("set alpha NiceValue=1"),
              std::string("AppConfigs / alpha / NiceValue: 1 -> 1\n") + kOffHint + kApplied +
                  writes(write(everything_with(1))));
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

TEST(EditKeeps, ObjectsThatThePlatformReadsWhole) {
  std::vector<std::pair<std::string, std::string>> cases;  // a file, and what stays in it
  for (const double seconds :
       {0.0, 736259696.0, -978307200.0, 63113904000.0, -63114076800.0, 736259696.1234567, -1.5}) {
    cases.emplace_back(binaryWith(date(seconds)), date(seconds));
  }
  for (const std::string& text : {"\x62"s + "\x5f\x01\x4e\x2d"s,
                                  BinaryBuilder::ascii(std::string(14, 'x')), "\x42"s + "\0\0"s}) {
    cases.emplace_back(binaryWith(text), text);
  }
  for (const std::string year : {"1", "2100", "4001"}) {
    const std::string date = "<date>" + year + "-01-01T00:00:00Z</date>";
    cases.emplace_back("<plist version=\"1.0\"><dict><key>key</key>" + date + "</dict></plist>",
                       date);
  }
  EditStory story;
  for (const auto& [bytes, object] : cases) {
    writeAll(story.preferencesFile(), bytes);
    EXPECT_EQ(story.answer("enable"), "Enabled: (none) -> true\n");
    EXPECT_NE(story.bytes().find(object), std::string::npos) << story.bytes();
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
  EXPECT_EQ(story.edit("set last Remark=" + std::string(40'000, 'x')),
            "err: vorlatchctl: {preferences} would be larger than what the daemon reads; nothing "
            "is changed\nexit 3\n");
}

}  // namespace
}  // namespace vorlatch::tests
