// What the home screen calls apps, in the JSON of vorlatchctl.
#include "control/app_names.h"

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/kill_reports.h"

namespace vorlatch::tests {
namespace {

struct NamesStory : KillsStory {
  // Adds an app to the folder of apps. Returns the path of its executable.
  [[nodiscard]] std::string addApp(const std::string& executable, Dictionary info) {
    device.applications = {rootPath("/containers")};
    const std::string bundle = rootPath("/containers/" + executable + ".app");
    std::filesystem::create_directories(bundle);
    info.emplace("CFBundleExecutable", executable);
    writeAll(bundle + "/Info.plist", platform::writeXmlPropertyList(plist::Value(info)));
    return bundle + "/" + executable;
  }
  [[nodiscard]] ReportJson json(const std::string& line) {
    return ReportJson::parse(run(wordsOf(line + " --json")).out);
  }
  // The display name of the only process that was ended.
  [[nodiscard]] std::string killedName(const std::string& process) {
    put(reportNaming(process));
    return json("kills")["kills"][0]["display_name"].dump();
  }
};

TEST(AppNames, StandBesideEachApp) {
  NamesStory story;
  story.device.launch(
      {.name = "WeChat",
       .executable_path = story.installApp("WeChat", "com.tencent.xin", "WeChat!", "微信")});
  story.writeTargets(
      {{"com.tencent.xin", kLeftAlone}, {"WeChat", kLeftAlone}, {"alpha", Dictionary{}}});
  story.put(reportNaming("WeChat"));
  const auto names = [&story](const std::string& language) {
    std::string all;
    const auto add = [&all](const ReportJson& object) {
      all +=
          object["display_name"].is_null() ? "- " : object["display_name"].get<std::string>() + " ";
    };
    for (const auto& list : {story.json("ps WeChat" + language)["processes"],
                             story.json("ps alpha" + language)["processes"],
                             story.json("status" + language)["targets"]}) {
      for (const auto& object : list) add(object);
    }
    add(story.json("show com.tencent.xin" + language));
    add(story.json("show WeChat" + language)["last_kill"]);
    add(story.json("kills" + language)["kills"][0]);
    add(story.json("kills --report " + kReport + language)["processes"][0]);
    return all;
  };
  EXPECT_EQ(names(""), "WeChat! - WeChat! - WeChat! WeChat! WeChat! WeChat! WeChat! ");
  EXPECT_EQ(names(" --lang zh"), "微信 - 微信 - 微信 微信 微信 微信 微信 ");
}

TEST(AppNames, AreReadFromTheBundle) {
  NamesStory story;
  const auto name_with = [&story](Dictionary info) {
    info.emplace("CFBundleIdentifier", "org.app");
    static_cast<void>(story.addApp("App", std::move(info)));
    control::AppNames names;
    return names.ofBundle("org.app").value_or("none");
  };
  EXPECT_EQ(name_with({}), "none");
  EXPECT_EQ(name_with({{"CFBundleName", "Name"}}), "Name");
  EXPECT_EQ(name_with({{"CFBundleName", "Name"}, {"CFBundleDisplayName", "Shown"}}), "Shown");
  EXPECT_EQ(name_with({{"CFBundleDisplayName", 7}}), "none");
  EXPECT_EQ(name_with({{"CFBundleDisplayName", std::string(1024, 'n')}}), std::string(1024, 'n'));
  EXPECT_EQ(name_with({{"CFBundleDisplayName", std::string(1025, 'n')}}), "none");
  control::AppNames names;
  EXPECT_FALSE(names.ofBundle("org.other"));
  EXPECT_FALSE(names.ofBundle(""));
}

// A report knows only the process: the target decides, then the only app with such a process.
TEST(AppNames, OfReportedProcesses) {
  NamesStory story;
  const std::string long_name = "a-name-of-more-than-32-characters";
  for (const std::string name : {"Runner", "Other", long_name.c_str()}) {
    static_cast<void>(story.addApp(
        name, {{"CFBundleIdentifier", "org." + name}, {"CFBundleName", "My " + name}}));
  }
  EXPECT_EQ(story.killedName("Runner"), "\"My Runner\"");
  EXPECT_EQ(story.killedName(long_name.substr(0, 32)), "\"My " + long_name + "\"");
  EXPECT_EQ(story.killedName("Runne"), "null");
  std::filesystem::copy(story.rootPath("/containers/Runner.app"),
                        story.rootPath("/containers/Second.app"));
  EXPECT_EQ(story.killedName("Runner"), "null");
  story.writeTargets({{"org.Runner", kLeftAlone}});
  EXPECT_EQ(story.killedName("Runner"), "\"My Runner\"");
}

// An app that is installed changes the folder of apps.
TEST(AppNames, AreKeptUntilAnAppIsInstalled) {
  using std::filesystem::file_time_type;
  NamesStory story;
  const auto name_of_app = [&story](const std::string& name, file_time_type folder_written) {
    static_cast<void>(
        story.addApp("App", {{"CFBundleIdentifier", "org.app"}, {"CFBundleName", name}}));
    std::filesystem::last_write_time(story.rootPath("/containers"), folder_written);
    control::AppNames names;
    return names.ofBundle("org.app").value_or("none");
  };
  const file_time_type now = file_time_type::clock::now();
  EXPECT_EQ(name_of_app("first", now - 1h), "first");
  EXPECT_EQ(name_of_app("second", now - 1h), "first");
  EXPECT_EQ(name_of_app("third", now - 2h), "third");
  // A folder that was written just now may be written again in the same second.
  EXPECT_EQ(name_of_app("fourth", now), "fourth");
  EXPECT_EQ(name_of_app("fifth", now), "fifth");
}

}  // namespace
}  // namespace vorlatch::tests
