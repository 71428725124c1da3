// vorlatchctl export, import and profile: preferences move between files, and nothing is lost on
// the way.
#include <sys/stat.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

namespace fs = std::filesystem;

const Dictionary kPair = dictionary(
    R"({"Enabled": true, "AppConfigs": {"alpha": {"NiceValue": 5}, "beta": {"Remark": "β"}}})");
const Dictionary kAlone = dictionary(
    R"({"Enabled": true, "LogSizeLimit": 9, "AppConfigs": {"gamma": {"NiceValue": 1}}})");
const std::string kGone = R"(AppConfigs / alpha / NiceValue: 5 -> (none)
AppConfigs / beta / Remark: β -> (none)
AppConfigs / gamma / NiceValue: (none) -> 1
)";

std::string refused(const std::string& message, int status = 3) {
  return "err: vorlatchctl: " + message + "\nexit " + std::to_string(status) + "\n";
}

// A story with a folder for the user's files, {root}/own.
struct TransferStory : EditStory {
  TransferStory() {
    fs::create_directory(own(""));
    writePreferences(kPair);
  }
  [[nodiscard]] std::string own(const std::string& name) const { return rootPath("/own/" + name); }
};

TEST(Export, PrintsXml) {
  TransferStory story;
  EXPECT_EQ(story.edit("export"), xml(kPair));
  EXPECT_EQ(story.edit("export -"), xml(kPair));
  writeAll(story.preferencesFile(), platform::writeBinaryPropertyList(kPair));
  EXPECT_EQ(story.edit("export"), xml(kPair));
  EXPECT_EQ(story.edit("export --json"), pretty(R"({"preferences": {"AppConfigs": {
      "alpha": {"NiceValue": 5}, "beta": {"Remark": "β"}}, "Enabled": true}})"));
  story.columns = 80;
  EXPECT_EQ(story.edit("export"), xml(kPair));
  story.writePreferences({{"\x1b[31m", "x"}});
  EXPECT_NE(story.edit("export").find("\n\t<key>^[[31m</key>\n"), std::string::npos);
}

TEST(Export, ReplacesOnlyFilesAndOnlyWhenForced) {
  TransferStory story;
  const std::string file = story.own("a.plist");
  EXPECT_EQ(story.edit("export " + file), "written to {root}/own/a.plist\n");
  EXPECT_EQ(readAll(file), xml(kPair));
  story.writePreferences(kAlone);
  EXPECT_EQ(story.edit("export " + file),
            refused("{root}/own/a.plist exists already; --force replaces it"));
  EXPECT_EQ(readAll(file), xml(kPair));
  EXPECT_EQ(story.edit("export --json --force " + file),
            pretty("{\"file\": \"{root}/own/a.plist\"}"));
  EXPECT_EQ(readAll(file), xml(kAlone));
  fs::create_symlink(file, story.own("link"));
  ASSERT_EQ(mkfifo(story.own("fifo").c_str(), 0600), 0);
  for (const std::string& name : Lines{"link", "fifo", ""}) {
    EXPECT_EQ(story.edit("export --force " + story.own(name)),
              refused("{root}/own/" + name +
                      " is no regular file, and is left alone; choose another name"));
  }
  EXPECT_EQ(story.edit("export " + story.own("no/file")),
            refused("{root}/own/no/file: there is no such folder"));
}

TEST(Export, RefusesWhatXmlWouldLose) {
  TransferStory story;
  fs::remove(story.preferencesFile());
  EXPECT_EQ(story.edit("export"),
            refused("{preferences} is missing; the daemon writes its preset when it is started"));
  const Dictionary dated{{"When", plist::Date{0.5}}};
  writeAll(story.preferencesFile(), platform::writeBinaryPropertyList(dated));
  EXPECT_EQ(story.edit("export"), refused("{preferences} holds something that an XML file cannot "
                                          "hold as it is; copy the file itself"));
}

// The file's form comes with it; the file itself stays as it is.
TEST(Import, ReplacesAllPreferences) {
  TransferStory story;
  const Arguments import{"import", story.own("a.plist")};
  const std::string changes = kGone + "LogSizeLimit: (none) -> 9\n";
  story.writePreferences(kAlone);
  ASSERT_EQ(story.run({"export", story.own("a.plist")}).status, 0);
  story.expectEdit(import, kPair, changes, kAlone);
  EXPECT_EQ(story.edit(import), "nothing to change\n");
  const std::string binary = platform::writeBinaryPropertyList(kAlone);
  writeAll(story.own("a.plist"), binary);
  EXPECT_EQ(story.edit(import), "nothing to change\n");
  story.writePreferences(kPair);
  EXPECT_EQ(story.edit(import), changes + kApplied + writes(binary));
  writeAll(story.preferencesFile(), "damaged");
  EXPECT_TRUE(story.edit(import).ends_with(kApplied + writes(binary)));
  EXPECT_EQ(readAll(story.own("a.plist")), binary);
}

TEST(Import, WarnsOfWhatCheckFinds) {
  TransferStory story;
  const Dictionary odd = dictionary(R"({"Enabled": true, "AppConfigs": {"alpha": {"Nice": 5}}})");
  const std::string file = story.own("odd.plist");
  writeAll(file, xml(odd));
  const std::string changes = R"(AppConfigs / alpha / NiceValue: 5 -> (none)
AppConfigs / alpha / Nice: (none) -> 5
AppConfigs / beta / Remark: β -> (none)
)";
  EXPECT_EQ(
      story.edit("import --no-apply " + file),
      changes +
          "err: vorlatchctl: warning: AppConfigs / alpha / Nice: is unknown to the daemon; did you "
          "mean NiceValue?\n" +
          writes(odd));
  EXPECT_EQ(story.edit("import --json " + file), pretty(R"({
      "changes": [], "written": false, "applied": false, "warnings": [
        {"path": ["AppConfigs", "alpha", "Nice"], "code": "unknown-key",
         "message": "is unknown to the daemon; did you mean NiceValue?"}]})"));
}

TEST(Import, RefusesWhatTheDaemonWouldNotRead) {
  TransferStory story;
  const std::string file = story.own("a.plist");
  const auto expect_refusal = [&](const std::string& message) {
    story.expectRefusal({"import", file}, "--dry-run", refused("{root}/own/a.plist" + message));
  };
  const std::string empty = "; the daemon reads it as empty; nothing is changed";
  expect_refusal(": there is no such file");
  writeAll(file, "damaged");
  expect_refusal(" is damaged, or neither XML in UTF-8 nor binary" + empty);
  writeAll(file, platform::writeBinaryPropertyList(Array{1}));
  expect_refusal(" holds a list and no dictionary" + empty);
  writeAll(file, std::string(600'000, ' '));
  expect_refusal(" is larger than 512 kB" + empty);
  // Others may not read this one, but would read the preferences.
  fs::rename(file, story.own("secret"));
  writeAll(story.own("secret"), xml(kAlone));
  fs::create_symlink(story.own("secret"), file);
  expect_refusal(": a link, or no file of at most 512 kB; nothing is changed");
}

TEST(Profile, SavesUsesListsAndRemoves) {
  TransferStory story;
  EXPECT_EQ(story.answer("profile list"), "no profile is saved\n");
  EXPECT_EQ(story.answer("profile save 两个 --dry-run"),
            "profile 两个: 2 targets\nnothing was written\n");
  EXPECT_EQ(story.answer("profile save 两个"), "profile 两个: 2 targets\n");
  const std::string file = story.file("com.zel.vorlatch.profile.两个.plist");
  EXPECT_EQ(readAll(file), xml({{"AppConfigs", kPair.at("AppConfigs")}}));
  Dictionary used = kAlone;
  used.insert_or_assign("AppConfigs", kPair.at("AppConfigs"));
  story.expectEdit({"profile", "use", "两个"}, kAlone,
                   R"(AppConfigs / gamma / NiceValue: 1 -> (none)
AppConfigs / alpha / NiceValue: (none) -> 5
AppConfigs / beta / Remark: (none) -> β
)",
                   used);
  writeAll(story.file("com.zel.vorlatch.profile.bad.plist"), "damaged");
  writeAll(story.file("com.zel.vorlatch.profile.two.plist.tmp.abcdef"), "");
  EXPECT_EQ(story.answer("profile list"), R"(PROFILE  TARGETS     IN USE
bad      unreadable  -
两个     2           yes
)");
  story.writePreferences(kAlone);
  EXPECT_EQ(story.answer("profile list --json"), pretty(R"({"profiles": [
      {"name": "bad", "file": "{root}/var/mobile/Library/Preferences/com.zel.vorlatch.profile.bad.plist",
       "targets": null, "in_use": false},
      {"name": "两个", "file": "{root}/var/mobile/Library/Preferences/com.zel.vorlatch.profile.两个.plist",
       "targets": 2, "in_use": false}]})"));
  EXPECT_EQ(story.answer("profile save 两个 --force --json"),
            pretty(R"({"targets": 1, "profile": "两个", "written": true})"));
  EXPECT_EQ(story.answer("__complete profile use ").substr(0, 11), "bad\n两个\n");
  EXPECT_EQ(story.answer("profile remove bad --dry-run"),
            "profile bad is removed\nnothing was written\n");
  EXPECT_EQ(story.answer("profile remove bad"), "profile bad is removed\n");
  EXPECT_EQ(story.answer("profile list"), "PROFILE  TARGETS  IN USE\n两个           1  yes\n");
}

TEST(Profile, RefusesWrongWordsAndFiles) {
  TransferStory story;
  ASSERT_EQ(story.run({"profile", "save", "gaming"}).status, 0);
  const std::string name_rule =
      "a profile's name has 1 to 64 bytes of UTF-8, without / and control characters, and does not "
      "begin with a dot";
  for (const std::string& name :
       {std::string(".x"), std::string("a/b"), std::string("a\tb"), std::string("\xff"),
        std::string("\xc2\x85"), std::string(65, 'x')}) {
    EXPECT_EQ(story.edit({"profile", "save", name}), refused(name_rule, 2)) << name;
    EXPECT_EQ(story.edit({"profile", "use", name}), refused(name_rule, 2)) << name;
  }
  EXPECT_EQ(story.answer("profile save " + std::string(64, 'x')),
            "profile " + std::string(64, 'x') + ": 2 targets\n");
  const std::string unknown = "no profile gamin is saved; did you mean gaming?";
  EXPECT_EQ(story.edit("profile use gamin"), refused(unknown, 2));
  EXPECT_EQ(story.edit("profile remove gamin"), refused(unknown, 2));
  EXPECT_EQ(story.edit("profile use"),
            refused("NAME is missing; vorlatchctl profile --help says more", 2));
  EXPECT_EQ(story.edit("profile list gaming"), refused("nothing takes the argument \"gaming\"", 2));
  EXPECT_EQ(story.edit("profile sav x"),
            refused("profile takes save, use, list or remove, not \"sav\"; did you mean save?", 2));
  const std::string file =
      "{root}/var/mobile/Library/Preferences/com.zel.vorlatch.profile.gaming.plist";
  for (const char* option : {"", " --dry-run"}) {
    EXPECT_EQ(story.edit(std::string("profile save gaming") + option),
              refused(file + " exists already; --force replaces it"));
  }
  writeAll(story.file("com.zel.vorlatch.profile.gaming.plist"), xml({{"AppConfigs", 7}}));
  EXPECT_EQ(story.edit("profile use gaming"),
            refused(file + " is no property list with AppConfigs; nothing is changed"));
  story.writePreferences({});
  EXPECT_EQ(story.edit("profile save new"),
            refused("{preferences} has no targets; nothing is saved"));
}

}  // namespace
}  // namespace vorlatch::tests
