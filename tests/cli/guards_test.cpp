// What vorlatchctl set refuses, and what it warns of.
#include <filesystem>

#include <gtest/gtest.h>

#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

constexpr std::uint64_t kMegabyte = 1 << 20;

// An app uses 812 MB of a phone with 3925 MB, and has used 1020.
struct Phone : EditStory {
  Phone() {
    device.memory = {.total_bytes = 3925 * kMegabyte, .free_bytes = 0, .compressed_bytes = 0};
    const auto app =
        installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}});
    device.launch(
        {.name = "WeChat",
         .executable_path = app,
         .memory = {{.footprint_bytes = 812 * kMegabyte, .peak_bytes = 1020 * kMegabyte}}});
    const auto touch =
        installApp("backboardd.app", Dictionary{{"CFBundleIdentifier", "com.apple.backboardd"}});
    device.launch({.name = "backboardd", .executable_path = touch});
    launchDaemon();
    writeTargets({{"com.tencent.xin", Dictionary{}}});
  }
};

TEST(Guards, RefuseLimitsThatDoHarm) {
  Phone phone;
  const std::vector<std::pair<std::string, std::string>> cases{
      {"set com.tencent.xin MemLimitActive=1274",
       "MemLimitActive of 1274 MB is refused: com.tencent.xin uses 812 MB now and has used 1020 "
       "MB, and the system ends it above the limit; set at least 1275 MB, or --force"},
      {"set com.tencent.xin MemLimitInactive=4G",
       "MemLimitInactive of 4096 MB is refused: the device has 3925 MB; --force sets it"},
      {"set SpringBoard MemLimitActive=3000",
       "MemLimitActive of SpringBoard is refused: a limit can end it, and without it there is no "
       "home screen; --force sets it"},
      {"set com.apple.backboardd MemLimitActive=3000",
       "MemLimitActive of com.apple.backboardd is refused: a limit can end it, and without it "
       "there is no touch and no picture; --force sets it"}};
  for (const auto& [line, message] : cases) {
    EXPECT_EQ(phone.edit(line), "err: vorlatchctl: " + message + "\nexit 2\n") << line;
  }
  const std::string set = "AppConfigs / com.tencent.xin / MemLimitActive: ";
  EXPECT_TRUE(phone.answer("set com.tencent.xin MemLimitActive=1275")
                  .starts_with(set + "(none) -> 1275\n"));
  EXPECT_TRUE(phone.answer("set com.tencent.xin MemLimitActive=1GB --force")
                  .starts_with(set + "1275 -> 1024\n"));
  // What the file says already is not asked about again, and no limit does no harm.
  EXPECT_TRUE(phone.answer("set com.tencent.xin NiceValue=1 MemLimitInactive=0")
                  .starts_with("AppConfigs / com.tencent.xin / MemLimitInactive: (none) -> 0\n"));
}

TEST(Guards, RefuseHarmfulLimitsInAnImport) {
  Phone phone;
  const std::string file = phone.rootPath("/limits.plist");
  writeAll(file, xml(dictionary(R"({"AppConfigs": {"SpringBoard": {"MemLimitActive": 5}}})")));
  EXPECT_EQ(phone.edit("import " + file),
            "err: vorlatchctl: MemLimitActive of SpringBoard is refused: a limit can end it, and "
            "without it there is no home screen; --force sets it\nexit 2\n");
  const std::string changes = "AppConfigs / SpringBoard / MemLimitActive: (none) -> 5\n";
  EXPECT_NE(phone.answer("import --force --no-apply " + file).find(changes), std::string::npos);
  // What the preferences say already is not asked about again.
  EXPECT_EQ(phone.answer("import --json " + file).find("error"), std::string::npos);
}

TEST(Guards, LeaveANewTargetsBandAlone) {
  Phone phone;
  EXPECT_EQ(
      phone.answer("set WeChat NiceValue=1 --dry-run"),
      "AppConfigs / WeChat / JetsamPriority: (none) -> -1\n"
      "AppConfigs / WeChat / NiceValue: (none) -> 1\nnothing was written\n"
      "err: vorlatchctl: warning: com.tencent.xin and WeChat are the same process: the daemon "
      "applies both, one after the other\n");
  EXPECT_TRUE(phone.answer("set WeChat JetsamPriority=home --dry-run")
                  .starts_with("AppConfigs / WeChat / JetsamPriority: (none) -> 160\nnothing"));
}

TEST(Guards, RefuseImpossibleTargets) {
  Phone phone;
  const auto refusal = [&](const std::string& target) {
    return phone.edit(Lines{"set", target, "NiceValue=1"});
  };
  for (const char* target : {" kbd", "kbd ", "kbd\u3000"}) {
    EXPECT_EQ(refusal(target), "err: vorlatchctl: \"" + std::string(target) +
                                   "\" begins or ends with a blank; leave it out\nexit 2\n");
  }
  EXPECT_EQ(refusal("kbd\n"),
            "err: vorlatchctl: \"kbd^J\" begins or ends with a blank; leave it out\nexit 2\n");
  EXPECT_EQ(refusal("“kbd”"),
            "err: vorlatchctl: “kbd” has typographic quotes; leave them out, or type ' or \"\n"
            "exit 2\n");
}

TEST(Guards, WarnOfTargetsThatNothingBears) {
  Phone phone;
  phone.installApp("Mail", "com.example.mail", "Post", "邮件");
  const std::string nothing =
      "err: vorlatchctl: warning: no running process and no installed app is called ";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"wechat", nothing + "wechat; did you mean WeChat, com.tencent.xin?\n"},
      {"邮件", nothing + "邮件; did you mean com.example.mail?\n"},
      {"post", nothing + "post; did you mean com.example.mail?\n"},
      {"com.example.mial", nothing + "com.example.mial; did you mean com.example.mail?\n"},
      {"quite another", nothing + "quite another\n"},
      {"Mail", ""}};
  for (const auto& [target, warning] : cases) {
    const std::string said = phone.answer(Lines{"set", target, "NiceValue=1", "--dry-run"});
    EXPECT_EQ(said.substr(std::min(said.find("err: "), said.size())), warning) << target;
  }
}

TEST(Guards, WarnInJsonWithACode) {
  Phone phone;
  const std::vector<std::pair<std::string, std::string>> cases{{"nobody", "no-match"},
                                                               {"WeChat", "same-process"}};
  for (const auto& [target, code] : cases) {
    const std::string json = phone.answer("set " + target + " NiceValue=1 --dry-run --json");
    EXPECT_NE(json.find("\"code\": \"" + code + "\""), json.npos) << json;
  }
}

TEST(Set, TakesUnitsCapitalsAndFullWidth) {
  Phone phone;
  const std::vector<std::pair<std::string, std::string>> cases{
      {"MemLimitActive=2g", "MemLimitActive: (none) -> 2048"},
      {"MemLimitActive=1500MB", "MemLimitActive: (none) -> 1500"},
      {"MemLimitActive＝２０００", "MemLimitActive: (none) -> 2000"},
      {"CheckInterval=5m", "CheckInterval: (none) -> 300"},
      {"CheckInterval=30s", "CheckInterval: (none) -> 30"},
      {"CheckInterval=1h", "CheckInterval: (none) -> 3600"},
      {"StripManaged=TRUE", "StripManaged: (none) -> true"},
      {"Remark=ＡＢ＝Ｃ", "Remark: (none) -> ＡＢ＝Ｃ"}};
  for (const auto& [typed, change] : cases) {
    EXPECT_EQ(phone.answer(Lines{"set", "com.tencent.xin", typed, "--dry-run"}),
              "AppConfigs / com.tencent.xin / " + change + "\nnothing was written\n");
  }
  for (const char* typed : {"MemLimitActive=30s", "MemLimitActive=9999999G", "NiceValue=1m"}) {
    EXPECT_NE(phone.answer(Lines{"set", "kbd", typed}).find(" takes "), std::string::npos) << typed;
  }
}

}  // namespace
}  // namespace vorlatch::tests
