// What check says of files that cannot be read as preferences, and of a file that it is given.
#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Array;
using plist::Dictionary;

Output unreadable(const std::string& path, const std::string& message) {
  return {1, path + ": " + message + "\n", ""};
}

Output unreadableJson(const std::string& path, const std::string& message) {
  return {1,
          "{\n  \"file\": \"" + path +
              "\",\n  \"findings\": [\n    {\n      \"path\": [],\n"
              "      \"kind\": \"unreadable\",\n      \"message\": \"" +
              message +
              "\"\n    }\n  ],\n  \"size\": null,\n  \"bound\": {\n    \"file_bytes\": 524288,\n"
              "    \"memory_bytes\": 2150000,\n    \"levels\": 128\n  }\n}\n",
          ""};
}

void expectUnreadable(ControlStory& story, const std::string& message) {
  const std::string path = story.preferencesFile();
  EXPECT_EQ(story.run({"check"}), unreadable(path, message));
  EXPECT_EQ(story.run({"check", "--json"}), unreadableJson(path, message));
  EXPECT_EQ(story.run({"check", path, "--no-processes"}), unreadable(path, message));
}

std::string nested(int depth) {
  std::string text = "<plist version=\"1.0\">";
  for (int i = 0; i < depth; ++i) text += "<array>";
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</plist>";
}

std::string manyTexts(int count) {
  std::string text = "<plist version=\"1.0\"><array>";
  for (int i = 0; i < count; ++i) text += "<string/>";
  return text + "</array></plist>";
}

TEST(CheckFile, SaysWhatKeepsItFromBeingRead) {
  ControlStory story;
  const std::string whole = platform::writeXmlPropertyList(defaultPreset());
  const std::string binary = platform::writeBinaryPropertyList(defaultPreset());
  const std::string damaged =
      "is damaged, or neither XML in UTF-8 nor binary; the daemon reads it as empty";
  const std::string too_deep = "nests deeper than 128 levels; the daemon reads it as empty";
  const std::string no_list = "is no property list; the daemon reads it as empty";
  const std::string a_list = "holds a list and no dictionary; the daemon reads it as empty";
  const std::vector<std::pair<std::string, std::string>> files{
      {"", "is empty: the daemon is switched off"},
      {whole.substr(0, whole.size() / 2), no_list},
      {whole.substr(0, whole.find("</key>") + 3), damaged},
      {binary.substr(0, binary.size() / 2), damaged},
      {"no property list", damaged},
      {std::string(1, '\0'), damaged},
      {"<plist><array><true/></array></plist>", a_list},
      {platform::writeBinaryPropertyList(Array{1}), a_list},
      {"<plist><string>x</string></plist>",
       "holds a text and no dictionary; the daemon reads it as empty"},
      {"bplist00", damaged},
      {"bplist00\xd1\x01\x02", damaged},
      {std::string("\xff\xfe<\0p\0", 6), damaged},
      {nested(128), a_list},
      {nested(129), too_deep},
      {nested(20'000), too_deep},
      {manyTexts(20'000),
       "would take more memory than the daemon gives it; the daemon reads it as empty"},
      {std::string(500'000, '<'), damaged},
      {"<plist><dict><key>a</key><string>\xff</string></dict></plist>", no_list},
  };
  for (const auto& [bytes, message] : files) {
    SCOPED_TRACE(bytes.substr(0, 40));
    writeAll(story.preferencesFile(), bytes);
    expectUnreadable(story, message);
  }
}

TEST(CheckFile, SaysThatADirectoryOrAFifoStandsInItsPlace) {
  ControlStory story;
  std::filesystem::create_directory(story.preferencesFile());
  expectUnreadable(story, "is a directory; the daemon reads it as empty");
  std::filesystem::remove(story.preferencesFile());
  ASSERT_EQ(mkfifo(story.preferencesFile().c_str(), 0666), 0);
  expectUnreadable(story, "is no regular file; the daemon reads it as empty");
}

TEST(CheckFile, SaysThatItIsTooLarge) {
  ControlStory story;
  writeAll(story.preferencesFile(), "x");
  std::filesystem::resize_file(story.preferencesFile(), 512U * 1024 + 1);
  expectUnreadable(story, "is larger than 512 kB; the daemon reads it as empty");
}

TEST(CheckFile, SaysWhatFollowsFromAMissingOne) {
  ControlStory story;
  const std::string message =
      "is missing: the daemon is switched off, and writes its default preset when it is started";
  EXPECT_EQ(story.run({"check"}), unreadable(story.preferencesFile(), message));
  EXPECT_EQ(story.run({"check", "--json"}), unreadableJson(story.preferencesFile(), message));
}

TEST(CheckFile, LooksAtTheFileThatItIsGiven) {
  ControlStory story;
  story.writePreferences({{"Enabled", 1}});
  const std::string given = story.rootPath("/given.plist");
  writeAll(given, platform::writeBinaryPropertyList(defaultPreset()));
  EXPECT_EQ(
      story.run({"check", given, "--no-processes"}),
      (Output{0,
              given + ": all in order\n" + given +
                  ": takes 2 % of the memory that the daemon gives it, 1 % of the bytes, 3 of "
                  "128 levels\n",
              ""}));
  EXPECT_EQ(story.run({"check", given, "--no-processes", "--json"}),
            (Output{0, "{\n  \"file\": \"" + given + R"(",
  "findings": [],
  "size": {
    "file_bytes": 521,
    "memory_bytes": 25473,
    "levels": 3
  },
  "bound": {
    "file_bytes": 524288,
    "memory_bytes": 2150000,
    "levels": 128
  }
}
)",
                    ""}));
  writeAll(given, "<plist/>");
  EXPECT_EQ(story.run({"check", given}),
            unreadable(given, "is no property list; the daemon reads it as empty"));
}

TEST(CheckFile, CannotCheckAGivenFileThatIsNotThere) {
  ControlStory story;
  story.writePreferences(defaultPreset());
  const std::string given = story.rootPath("/given.plist");
  const Output could_not{3, "", "vorlatchctl: " + given + ": there is no such file\n"};
  EXPECT_EQ(story.run({"check", given}), could_not);
  EXPECT_EQ(story.run({"check", given, "--json"}), could_not);
}

TEST(CheckFile, SaysThatItIsALinkToItself) {
  ControlStory story;
  std::filesystem::create_symlink(story.preferencesFile(), story.preferencesFile());
  EXPECT_EQ(story.run({"check"}),
            (Output{1,
                    story.preferencesFile() + ": is a link to itself; the daemon reads it as "
                                              "empty\n",
                    ""}));
}

TEST(CheckFile, WithAnEmptyNameIsNotThere) {
  ControlStory story;
  EXPECT_EQ(story.run({"check", ""}), (Output{3, "", "vorlatchctl: : there is no such file\n"}));
}

}  // namespace
}  // namespace vorlatch::tests
