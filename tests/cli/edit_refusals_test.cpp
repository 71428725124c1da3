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

namespace fs = std::filesystem;
using namespace std::string_literals;

// Command lines, each with the message that refuses it.
using Refusals = std::vector<std::pair<std::string, std::string>>;

const std::string kLongest(100, 'k');

struct Configured : EditStory {
  Configured() {
    Dictionary targets{{"alpha", Dictionary{{"NiceValue", 5}}}};
    for (const std::string& name : {kLongest, "q" + kLongest, "bat"s, "rat"s, "SpringBoard"s}) {
      targets.emplace(name, Dictionary{});
    }
    writeTargets(targets);
  }
  void expectWrongUsage(const Arguments& arguments, const std::string& message) {
    EXPECT_EQ(edit(arguments), "err: vorlatchctl: " + message + "\nexit 2\n")
        << testing::PrintToString(arguments);
  }
};

void expectWrongUsage(const Refusals& refusals) {
  Configured story;
  for (const auto& [line, message] : refusals) story.expectWrongUsage(wordsOf(line), message);
}

TEST(EditRefuses, WrongCommandsAndKeys) {
  const std::string longest(1000, 'N');
  const std::string no_key = "there is no key ";
  expectWrongUsage({{"set alpha NiceValu=5", no_key + "NiceValu; did you mean NiceValue?"},
                    {"set alpha nice=5", no_key + "nice; did you mean NiceValue?"},
                    {"set alpha Zzz=1", no_key + "Zzz"},
                    {"set alpha " + longest + "=1", no_key + longest},
                    {"set alpha \x1b[31m=1", no_key + "^[[31m"},
                    {"unset alpha NiceValue Remrk", no_key + "Remrk; did you mean Remark?"},
                    {"sett alpha NiceValue=1", "there is no command sett; did you mean set?"},
                    {"Enable", "there is no command Enable; did you mean enable?"},
                    {"frobnicate", "there is no command frobnicate"},
                    {"set alpha NiceValue", "\"NiceValue\" is not KEY=VALUE"},
                    {"set alpha NiceValue=1 5", "\"5\" is not KEY=VALUE"},
                    {"set alpha =5", "\"=5\" is not KEY=VALUE"}});
}

// Nothing goes when one target of several is unknown. Up to a third of a name may be wrong, and of
// equally near ones the first is meant. A name of more than 100 characters is compared with none.
TEST(EditRefuses, WrongTargets) {
  const std::string what = "a target is a bundle identifier or a process name";
  const auto unknown = [](const std::string& target, const std::string& meant = "") {
    return "no target " + target + " is configured" +
           (meant.empty() ? "" : "; did you mean " + meant + "?");
  };
  expectWrongUsage({{"set  NiceValue=1", what},
                    {"set \xff NiceValue=1", what},
                    {"unset alhpa NiceValue", unknown("alhpa", "alpha")},
                    {"unset alpha123 NiceValue", unknown("alpha123")},
                    {"unset alpha12 NiceValue", unknown("alpha12", "alpha")},
                    {"remove cat", unknown("cat", "bat")},
                    {"remove ", unknown("")},
                    {"remove q" + kLongest.substr(1), unknown("q" + kLongest.substr(1), kLongest)},
                    {"remove springbord", unknown("springbord", "SpringBoard")},
                    {"remove " + kLongest.substr(1), unknown(kLongest.substr(1), kLongest)},
                    {"remove k" + kLongest, unknown("k" + kLongest)},
                    {"remove alpha SpringBoart", unknown("SpringBoart", "SpringBoard")}});
}

// The kernel makes a process in the band aging1 idle, so that set refuses this name.
TEST(EditRefuses, WrongValues) {
  const std::string limit = "-1 to 2147483647 MB, or 512MB, 1G";
  const std::string band = "-1 to 210, or a band's name (see vorlatchctl bands)";
  struct Case {
    std::string key;
    std::string range;
    std::vector<std::string> values;
  };
  const std::vector<Case> cases{
      {"NiceValue",
       "-20 to 20",
       {"21", "-21", "99999999999999999999", "", "1.5", "5x", " 5", "+5", "0x5", "true", "home"}},
      {"JetsamPriority", band, {"211", "-2", "998", "1000", "2 1", "zzz", "aging1"}},
      {"MemLimitActive", limit, {"-2", "2147483648", "512kB"}},
      {"MemLimitInactive", limit, {"-2"}},
      {"CheckInterval", "0 to 2147483647 seconds, or 30s, 5m, 1h", {"-1", "2147483648", "1d"}},
      {"StripManaged", "true or false", {"maybe", "", "2"}}};
  Configured story;
  for (const auto& [key, range, values] : cases) {
    for (const std::string& value : values) {
      story.expectWrongUsage({"set", "alpha", key + "=" + value},
                             key + " takes " + range + ", not \"" + value + "\"");
    }
  }
  const Refusals meant{{"forground", "foreground"}, {"Home", "home"}, {"ui_support", "ui-support"}};
  for (const auto& [value, name] : meant) {
    story.expectWrongUsage(
        {"set", "alpha", "JetsamPriority=" + value},
        "JetsamPriority takes " + band + ", not \"" + value + "\"; did you mean " + name + "?");
  }
  story.expectWrongUsage({"set", "alpha", "Remark=\xff"}, "Remark takes UTF-8 text");
}

const Lines kEdits{"set alpha NiceValue=1",
                   "unset alpha NiceValue",
                   "remove alpha",
                   "preset",
                   "preset --replace",
                   "enable",
                   "disable"};

// Each of the first `count` edits is refused with this answer.
void expectRefusals(EditStory& story, const std::string& answer, std::size_t count = 7) {
  for (std::size_t i = 0; i < count; ++i) {
    story.expectRefusal(wordsOf(kEdits.at(i)), "--dry-run", answer);
  }
}

constexpr const char* kNoFile =
    "err: vorlatchctl: {preferences}: a link, or no file of at most 512 kB; move it away, then run "
    "this again\nexit 3\n";

constexpr const char* kNotKept =
    "err: vorlatchctl: {preferences} cannot be kept for vorlatchctl undo (a link, or no file of at "
    "most 512 kB), so nothing is changed; move it away, then run this again\nexit 3\n";

void expectUnkept(EditStory& story) {
  const std::string backup = story.rootPath("/backup.plist");
  writeAll(backup, xml({{"Enabled", true}, {"AppConfigs", Dictionary{}}}));
  for (const Arguments& edit : {Lines{"preset", "--replace-file"}, Lines{"import", backup}}) {
    story.expectRefusal(edit, "--dry-run", kNotKept);
  }
}

// Only the whole file can be replaced.
TEST(EditRefuses, AFileThatHoldsNoDictionary) {
  EditStory story;
  const std::string whole = xml(defaultPreset());
  for (const std::string& bytes :
       {""s, "no property list"s, whole.substr(0, whole.size() - 20),
        platform::writeBinaryPropertyList(Array{1}), "<plist><string>x</string></plist>"s}) {
    writeAll(story.preferencesFile(), bytes);
    expectRefusals(story, kNoPreferences);
    EXPECT_TRUE(story.edit("preset --replace-file --dry-run").ends_with("nothing was written\n"));
    const std::string said = story.edit("preset --replace-file");
    EXPECT_TRUE(said.ends_with("\nposts 1\n" + writes(whole)));
    EXPECT_EQ(said.find("err: "), said.npos);
    EXPECT_EQ(said.find("\nexit "), said.npos);
  }
}

// An edit is written for everybody to read, and root may read what others may not.
TEST(EditRefuses, WhatIsNoFileOfItsOwn) {
  EditStory story;
  const std::string secret = story.rootPath("/secret.plist");
  writeAll(secret, xml({}));
  fs::permissions(secret, fs::perms(0640));
  fs::create_symlink(secret, story.preferencesFile());
  expectRefusals(story, kNoFile);
  fs::remove(story.preferencesFile());
  fs::create_hard_link(secret, story.preferencesFile());
  expectRefusals(story, kNoFile);
  fs::permissions(secret, fs::perms(0644));  // what others may read is no secret
  EXPECT_EQ(story.answer("enable --no-apply"), "Enabled: (none) -> true\n");
  EXPECT_EQ(readAll(secret), xml({}));

  fs::remove(story.preferencesFile());
  ASSERT_EQ(mkfifo(story.preferencesFile().c_str(), 0666), 0);
  EXPECT_EQ(story.answer("enable"), kNoFile);
  EXPECT_EQ(story.answer("preset --replace-file"), kNotKept);
  EXPECT_TRUE(fs::is_fifo(story.preferencesFile()));

  fs::remove(story.preferencesFile());
  fs::create_directory(story.preferencesFile());
  expectRefusals(story, kNoFile);
  expectUnkept(story);
}

// What cannot be kept for undo is not replaced.
TEST(EditRefuses, ToReplaceWhatItCannotKeep) {
  EditStory story;
  writeAll(story.preferencesFile(), std::string(512 * 1024 + 1, 'x'));
  expectUnkept(story);
  const std::string elsewhere = story.rootPath("/elsewhere.plist");
  fs::rename(story.preferencesFile(), elsewhere);
  fs::create_symlink(elsewhere, story.preferencesFile());
  expectUnkept(story);
}

TEST(EditRefuses, AMissingDirectory) {
  EditStory story;
  fs::remove_all(story.file(""));
  for (const std::string& line : kEdits + Lines{"preset --replace-file"}) {
    EXPECT_EQ(story.edit(line),
              "err: vorlatchctl: {root}/var/mobile/Library/Preferences: No such file or directory; "
              "is the package installed, and has the daemon been started?\nexit 3\n");
  }
  EXPECT_FALSE(fs::exists(story.file("")));
}

TEST(EditRefuses, TargetsThatAreNoDictionary) {
  EditStory story;
  story.writePreferences({{"AppConfigs", Array{1}}});
  const std::string end =
      " and no dictionary; vorlatchctl check says more, and nothing is changed\nexit 3\n";
  expectRefusals(story, "err: vorlatchctl: AppConfigs is a list" + end, 5);
  story.writeTargets({{"alpha", "text"}});
  expectRefusals(story, "err: vorlatchctl: alpha is a text" + end, 2);
}

}  // namespace
}  // namespace vorlatch::tests
