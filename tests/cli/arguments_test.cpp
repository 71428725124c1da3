// How vorlatchctl reads a command line, and its help.
#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

TEST(Arguments, TakeEveryUsualForm) {
  ControlStory story;
  story.writeTargets({{"-x", Dictionary{{"[a,b]", 1}}}});
  const std::string removed = "AppConfigs / -x / [a,b]: 1 -> (none)\nnothing was written\n";
  for (const char* line :
       {"unset --dry-run -- -x [a,b]", "unset --dry-run --no-apply -- -x [a,b]"}) {
    EXPECT_EQ(story.answer(line), removed) << line;
  }
  writeAll(story.logFile(), "a\nb\nc\n");
  for (const char* line :
       {"log -n 1", "log -n1", "log --lines=1", "log --lines 1", "log -n2 -n1"}) {
    EXPECT_EQ(story.answer(line), "c\n") << line;
  }
  EXPECT_EQ(story.answer("log --json -hn1"), story.answer("--help log"));
}

TEST(Arguments, ThatNothingTakesAreRefused) {
  const std::vector<std::pair<std::string, std::string>> cases{
      {"--", "a command is needed; vorlatchctl --help names them"},
      {"--watch status", "there is no option --watch"},
      {"status --wach", "there is no option --wach; did you mean --watch?"},
      {"log -fx", "there is no option -x"},
      {"log -n", "--lines needs a value"},
      {"log -n 5x", "--lines takes a number from 0 to 1000000, not \"5x\""},
      {"log -n -1", "--lines takes a number from 0 to 1000000, not \"-1\""},
      {"status --watch=1", "--watch takes no value"},
      {"list alpha", "nothing takes the argument \"alpha\""},
      {"set alpha", "KEY=VALUE is missing; vorlatchctl set --help says more"}};
  for (const auto& [line, message] : cases) {
    EXPECT_EQ(ControlStory().answer(line), "err: vorlatchctl: " + message + "\nexit 2\n") << line;
  }
}

TEST(Arguments, RefusedForProgramsToo) {
  EXPECT_EQ(ControlStory().answer("show alpha beta --json"),
            R"(err: {"schema":1,"error":{"code":"wrong-usage",)"
            R"("message":"nothing takes the argument \"beta\""}})"
            "\nexit 2\n");
}

TEST(Help, OfACommandByName) {
  ControlStory story;
  EXPECT_EQ(story.answer("help log"), story.answer("log --help"));
  EXPECT_EQ(story.answer("help"), story.answer("--help"));
  EXPECT_EQ(story.answer("help lgo"),
            "err: vorlatchctl: there is no command lgo; did you mean log?\nexit 2\n");
  EXPECT_TRUE(story.answer("--version").starts_with("vorlatchctl ")) << story.answer("--version");
}

TEST(Language, IsChosenByOptionEnvironmentAndSystem) {
  ControlStory story;
  const auto in_chinese = [&story](const std::string& line) {
    const std::string said = story.answer(line);
    return said.find("目标") != said.npos;
  };
  EXPECT_FALSE(in_chinese("status"));
  EXPECT_TRUE(in_chinese("--lang zh status"));
  const auto choose = [&story](const plist::Value& languages) {
    story.device.global_preferences = story.rootPath("/.GlobalPreferences.plist");
    ASSERT_TRUE(
        writePropertyList(story.device.global_preferences,
                          Dictionary{{"AppleLocale", "zh_CN"}, {"AppleLanguages", languages}}));
  };
  for (const plist::Value& unusable : {plist::Value("zh-Hans-CN"), plist::Value(plist::Array{}),
                                       plist::Value(plist::Array{1, "zh-Hans-CN"}),
                                       plist::Value(plist::Array{"fr-CN", "zh-Hans-CN"})}) {
    choose(unusable);
    EXPECT_FALSE(in_chinese("status"));
  }
  choose(plist::Array{"zh-Hans-CN", "en-CN"});
  EXPECT_TRUE(in_chinese("status"));
  story.variables["LANG"] = "en_US.UTF-8";
  EXPECT_FALSE(in_chinese("status"));
  story.variables["LC_ALL"] = "zh_CN.UTF-8";
  EXPECT_TRUE(in_chinese("status"));
  EXPECT_FALSE(in_chinese("status --lang en"));
  EXPECT_EQ(story.answer("status --lang=fr").substr(0, 5), "err: ");
}

TEST(Help, FitsTheScreen) {
  ControlStory story;
  EXPECT_EQ(story.answer("unset --help"),
            "vorlatchctl unset TARGET KEY... [OPTION...]\n"
            "take keys out of a target's settings\n"
            "\nArguments:\n"
            "  TARGET  the target\n"
            "  KEY     what to take out\n"
            "\nOptions:\n"
            "  --dry-run    show the difference and write nothing\n"
            "  --no-apply   do not tell the daemon\n"
            "  --json       print JSON, for programs\n"
            "  --lang TEXT  the language: en or zh\n"
            "  -h, --help   print this help\n"
            "  --version    print the version\n"
            "\nExamples:\n"
            "  vorlatchctl unset backboardd CheckInterval\n");
  story.columns = 34;
  EXPECT_EQ(story.answer("unset -h"),
            "vorlatchctl unset TARGET KEY...\n"
            "[OPTION...]\n"
            "take keys out of a target's\n"
            "settings\n"
            "\nArguments:\n"
            "  TARGET\n"
            "      the target\n"
            "  KEY\n"
            "      what to take out\n"
            "\nOptions:\n"
            "  --dry-run\n"
            "      show the difference and\n"
            "      write nothing\n"
            "  --no-apply\n"
            "      do not tell the daemon\n"
            "  --json\n"
            "      print JSON, for programs\n"
            "  --lang TEXT\n"
            "      the language: en or zh\n"
            "  -h, --help\n"
            "      print this help\n"
            "  --version\n"
            "      print the version\n"
            "\nExamples:\n"
            "  vorlatchctl unset backboardd CheckInterval\n");
}

TEST(Help, OfSetListsTheKeys) {
  const std::string help = ControlStory().answer("set --help");
  EXPECT_NE(
      help.find("\nKeys:\n"
                "  CheckInterval     seconds between looks of the target's own timer; 0: none,\n"
                "                    the patrol looks every 1800 s\n"
                "  JetsamPriority    jetsam band to hold"),
      help.npos)
      << help;
}

}  // namespace
}  // namespace vorlatch::tests
