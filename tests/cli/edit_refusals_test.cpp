// What no edit takes: wrong words, with what was probably meant, and files that an edit would
// damage. In each case the file stays as it was, and nobody is told.
#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "platform/property_list.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using plist::Array;
using plist::Dictionary;

struct Refusal {
  Arguments arguments;
  std::string message;
};

void expectWrongUsage(const std::vector<Refusal>& refusals) {
  EditStory story;
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", 5}}},
                      {std::string(100, 'k'), Dictionary{}},
                      {"com.tencent.xin", Dictionary{}},
                      {"SpringBoard", Dictionary{}}});
  const FileVersion untouched = story.version();
  for (const Refusal& each : refusals) {
    const EditResult refused{{2, "", "vorlatchctl: " + each.message + "\n"}, untouched.bytes, 0};
    EXPECT_EQ(story.edit(each.arguments), refused);
    EXPECT_EQ(story.edit(with(each.arguments, {"--json"})), refused);
    EXPECT_EQ(story.version(), untouched);
  }
}

TEST(EditRefuses, WrongKeys) {
  expectWrongUsage({
      {{"set", "alpha", "NiceValu=5"}, "there is no key NiceValu; did you mean NiceValue?"},
      {{"set", "alpha", "nicevalue=5"}, "there is no key nicevalue; did you mean NiceValue?"},
      {{"set", "alpha", "NiceValue=1", "MemLimitActiv=1"},
       "there is no key MemLimitActiv; did you mean MemLimitActive?"},
      {{"set", "alpha", "Zzz=1"}, "there is no key Zzz"},
      {{"set", "alpha", "Enabled=1"}, "there is no key Enabled"},
      {{"set", "alpha", std::string(1000, 'N') + "=1"},
       "there is no key " + std::string(1000, 'N')},
      {{"set", "alpha", "\x1b[31m=1"}, "there is no key ^[[31m"},
      {{"unset", "alpha", "NiceValue", "Remrk"}, "there is no key Remrk; did you mean Remark?"},
  });
}

TEST(EditRefuses, WhatIsNoAssignment) {
  expectWrongUsage({
      {{"set", "alpha", "NiceValue"}, "\"NiceValue\" is not KEY=VALUE"},
      {{"set", "alpha", "NiceValue=1", "5"}, "\"5\" is not KEY=VALUE"},
      {{"set", "alpha", "=5"}, "\"=5\" is not KEY=VALUE"},
      {{"set", "", "NiceValue=1"}, "a target is a bundle identifier or a process name"},
      {{"set", "\xff", "NiceValue=1"}, "a target is a bundle identifier or a process name"},
  });
}

TEST(EditRefuses, WrongTargets) {
  expectWrongUsage({
      {{"unset", "alhpa", "NiceValue"}, "no target alhpa is configured; did you mean alpha?"},
      {{"unset", "alpha123", "NiceValue"}, "no target alpha123 is configured"},
      {{"unset", "alphas", "NiceValue"}, "no target alphas is configured; did you mean alpha?"},
      {{"remove", "springbord"}, "no target springbord is configured; did you mean SpringBoard?"},
      {{"remove", "com.tencent.xim"},
       "no target com.tencent.xim is configured; did you mean com.tencent.xin?"},
      {{"remove", "zzz"}, "no target zzz is configured"},
      // What is longer than any name is compared with none.
      {{"remove", std::string(99, 'k')},
       "no target " + std::string(99, 'k') + " is configured; did you mean " +
           std::string(100, 'k') + "?"},
      {{"remove", std::string(101, 'k')}, "no target " + std::string(101, 'k') + " is configured"},
      // Nothing goes when one of them is unknown.
      {{"remove", "alpha", "SpringBoart"},
       "no target SpringBoart is configured; did you mean SpringBoard?"},
  });
}

TEST(EditRefuses, WrongCommands) {
  expectWrongUsage({
      {{"sett", "alpha", "NiceValue=1"}, "there is no command sett; did you mean set?"},
      {{"Enable"}, "there is no command Enable; did you mean enable?"},
      {{"diable"}, "there is no command diable; did you mean disable?"},
      {{"frobnicate"}, "there is no command frobnicate"},
  });
}

TEST(EditRefuses, NumbersOutOfRange) {
  const auto takes = [](const std::string& key, const std::string& range) {
    return [key, range](const std::string& value) {
      return Refusal{{"set", "alpha", key + "=" + value},
                     key + " takes " + range + ", not \"" + value + "\""};
    };
  };
  const auto nice = takes("NiceValue", "-20 to 20");
  const auto band = takes("JetsamPriority", "-1 to 210, or a band's name (see vorlatchctl bands)");
  const auto active = takes("MemLimitActive", "-1 to 2147483647");
  const auto inactive = takes("MemLimitInactive", "-1 to 2147483647");
  const auto interval = takes("CheckInterval", "0 to 2147483647");
  expectWrongUsage({nice("21"), nice("-21"), nice("99999999999999999999"), band("211"), band("-2"),
                    band("998"), band("1000"), active("-2"), active("2147483648"), inactive("-2"),
                    interval("-1"), interval("2147483648")});
  expectWrongUsage({nice(""), nice("1.5"), nice("5x"), nice(" 5"), nice("+5"), nice("0x5"),
                    nice("true"), nice("home"), active("512MB"), interval("30s"), band("2 1")});
}

TEST(EditRefuses, WrongBandsAndTruthValues) {
  const std::string band =
      "JetsamPriority takes -1 to 210, or a band's name (see vorlatchctl bands), not ";
  expectWrongUsage({
      {{"set", "alpha", "JetsamPriority=forground"},
       band + "\"forground\"; did you mean foreground?"},
      {{"set", "alpha", "JetsamPriority=Home"}, band + "\"Home\"; did you mean home?"},
      {{"set", "alpha", "JetsamPriority=ui_support"},
       band + "\"ui_support\"; did you mean ui-support?"},
      {{"set", "alpha", "JetsamPriority=zzz"}, band + "\"zzz\""},
      // A kernel that is asked for these makes the process idle.
      {{"set", "alpha", "JetsamPriority=aging1"}, band + "\"aging1\""},
      {{"set", "alpha", "StripManaged=maybe"}, "StripManaged takes true or false, not \"maybe\""},
      {{"set", "alpha", "StripManaged="}, "StripManaged takes true or false, not \"\""},
      {{"set", "alpha", "StripManaged=2"}, "StripManaged takes true or false, not \"2\""},
      {{"set", "alpha", "Remark=\xff"}, "Remark takes UTF-8 text"},
  });
}

std::string nested(int depth) {
  std::string text = "<plist version=\"1.0\"><dict><key>a</key>";
  for (int i = 0; i < depth; ++i) text += "<array>";
  for (int i = 0; i < depth; ++i) text += "</array>";
  return text + "</dict></plist>";
}

const std::vector<Arguments>& edits() {
  static const std::vector<Arguments> all{{"set", "alpha", "NiceValue=1"},
                                          {"unset", "alpha", "NiceValue"},
                                          {"remove", "alpha"},
                                          {"enable"},
                                          {"disable"},
                                          {"preset"},
                                          {"preset", "--replace"}};
  return all;
}

TEST(EditRefuses, AFileThatHoldsNoDictionary) {
  EditStory story;
  const std::string whole = platform::writeXmlPropertyList(defaultPreset());
  const std::string binary = platform::writeBinaryPropertyList(defaultPreset());
  for (const std::string& bytes :
       {std::string(), std::string("no property list"), whole.substr(0, whole.size() / 2),
        whole.substr(0, whole.size() - 20), binary.substr(0, binary.size() - 1),
        std::string("bplist00"), std::string("<plist><array><true/></array></plist>"),
        platform::writeBinaryPropertyList(Array{1}),
        std::string("<plist><string>x</string></plist>"), nested(512), std::string(500'000, '<')}) {
    writeAll(story.preferencesFile(), bytes);
    const FileVersion untouched = story.version();
    for (const Arguments& arguments : edits()) {
      const EditResult refused{
          {3, "",
           "vorlatchctl: " + story.preferencesFile() +
               " is no property list with a dictionary, and is left as it is; vorlatchctl check "
               "says more, vorlatchctl preset --replace-file starts afresh\n"},
          bytes,
          0};
      EXPECT_EQ(story.edit(arguments), refused) << arguments[0];
      EXPECT_EQ(story.edit(with(arguments, {"--dry-run"})), refused) << arguments[0];
    }
    EXPECT_EQ(story.version(), untouched);
  }
}

TEST(EditRefuses, ADirectoryInTheFilesPlace) {
  EditStory story;
  std::filesystem::create_directory(story.preferencesFile());
  writeAll(story.preferencesFile() + "/inside", "x");
  for (const Arguments& arguments : edits()) {
    EXPECT_EQ(story.edit(arguments), (EditResult{{3, "",
                                                  "vorlatchctl: " + story.preferencesFile() +
                                                      ": a link, or no file of at most 512 kB\n"},
                                                 "",
                                                 0}));
  }
  EXPECT_EQ(story.edit({"preset", "--replace-file"}),
            (EditResult{
                {3, "", "vorlatchctl: " + story.preferencesFile() + ": Is a directory\n"}, "", 0}));
  EXPECT_EQ(readAll(story.preferencesFile() + "/inside"), "x");
  EXPECT_EQ(story.filesBeside(), Lines{"com.zel.vorlatch.plist"});
}

// An edit is written for everybody to read, and root may read what others may not.
TEST(EditRefuses, ALinkThatCouldLeadToASecret) {
  EditStory story;
  const std::string elsewhere = story.rootPath("/secret.plist");
  writeAll(elsewhere, platform::writeXmlPropertyList(Dictionary{{"Password", "secret"}}));
  const std::string secret = readAll(elsewhere);
  const Output refused{
      3, "",
      "vorlatchctl: " + story.preferencesFile() + ": a link, or no file of at most 512 kB\n"};
  std::filesystem::create_symlink(elsewhere, story.preferencesFile());
  for (const Arguments& arguments : edits()) EXPECT_EQ(story.run(arguments), refused);

  std::filesystem::remove(story.preferencesFile());
  std::filesystem::create_hard_link(elsewhere, story.preferencesFile());
  std::filesystem::permissions(elsewhere, std::filesystem::perms(0640));
  for (const Arguments& arguments : edits()) EXPECT_EQ(story.run(arguments), refused);
  EXPECT_EQ(readAll(elsewhere), secret);
  EXPECT_EQ(modeOf(elsewhere), 0640U);

  // What others may read is none.
  std::filesystem::permissions(elsewhere, std::filesystem::perms(0644));
  EXPECT_EQ(story.run({"disable", "--no-apply"}).status, 0);
  EXPECT_EQ(readAll(elsewhere), secret);
}

TEST(EditRefuses, AFifoInTheFilesPlace) {
  EditStory story;
  ASSERT_EQ(mkfifo(story.preferencesFile().c_str(), 0666), 0);
  for (const Arguments& arguments : edits()) {
    EXPECT_EQ(story.run(arguments), (Output{3, "",
                                            "vorlatchctl: " + story.preferencesFile() +
                                                ": a link, or no file of at most 512 kB\n"}));
  }
  EXPECT_TRUE(std::filesystem::is_fifo(story.preferencesFile()));
  EXPECT_EQ(story.run({"preset", "--replace-file", "--no-apply"}).status, 0);
  EXPECT_EQ(story.bytes(), platform::writeXmlPropertyList(defaultPreset()));
}

TEST(EditRefuses, AMissingDirectory) {
  EditStory story;
  std::filesystem::remove_all(story.file(""));
  const std::string directory = story.rootPath("/var/mobile/Library/Preferences");
  std::vector<Arguments> all = edits();
  all.push_back({"preset", "--replace-file"});
  for (const Arguments& arguments : all) {
    EXPECT_EQ(story.edit(arguments),
              (EditResult{{3, "",
                           "vorlatchctl: " + directory +
                               ": No such file or directory; is the package installed, and has "
                               "the daemon been started?\n"},
                          "",
                          0}));
  }
  EXPECT_FALSE(std::filesystem::exists(directory));
}

TEST(EditRefuses, ToPutTargetsIntoWhatIsNoDictionary) {
  EditStory story;
  story.writePreferences({{"AppConfigs", Array{1}}});
  std::string bytes = story.bytes();
  for (const Arguments& arguments : std::vector<Arguments>{{"set", "alpha", "NiceValue=1"},
                                                           {"unset", "alpha", "NiceValue"},
                                                           {"remove", "alpha"},
                                                           {"preset"},
                                                           {"preset", "--replace"}}) {
    EXPECT_EQ(story.edit(arguments),
              (EditResult{{3, "",
                           "vorlatchctl: AppConfigs is a list and no dictionary; vorlatchctl check "
                           "says more, and nothing is changed\n"},
                          bytes,
                          0}));
  }
  story.writeTargets({{"alpha", "text"}});
  bytes = story.bytes();
  for (const Arguments& arguments :
       std::vector<Arguments>{{"set", "alpha", "NiceValue=1"}, {"unset", "alpha", "NiceValue"}}) {
    EXPECT_EQ(story.edit(arguments),
              (EditResult{{3, "",
                           "vorlatchctl: alpha is a text and no dictionary; vorlatchctl check says "
                           "more, and nothing is changed\n"},
                          bytes,
                          0}));
  }
}

}  // namespace
}  // namespace vorlatch::tests
