// Commands for the page: what is allowed, and that the rest is vorlatchctl's own.
#include "web/commands.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "tests/cli/edit_story.h"

namespace vorlatch::tests {
namespace {

using PrintedJson = nlohmann::ordered_json;
using control::Language;

// The result of the command line as one text.
std::string resultOf(const web::Words& words, Language language = Language::English) {
  const web::CommandResult result = web::runCommand(words, language);
  return std::to_string(result.status) + " " + result.output + " " + result.error;
}
std::string resultOf(const std::string& line) {
  return resultOf(wordsOf(line));
}

TEST(PageCommands, AreAllowedByATable) {
  for (const char* line : {"status",
                           "status kbd",
                           "status kbd alpha beta",
                           "status -- -kbd",
                           "list",
                           "show kbd",
                           "plan",
                           "plan kbd",
                           "match kbd",
                           "ps",
                           "ps k",
                           "ps --sort memory",
                           "ps --sort=memory",
                           "check",
                           "check --no-processes",
                           "log",
                           "log -n 50",
                           "log -n",
                           "log --lines=50",
                           "log --lines 50",
                           "log --target kbd --category kernel --english",
                           "log --target --all",
                           "bands",
                           "doctor",
                           "kills",
                           "kills kbd --since 3d",
                           "kills --report JetsamEvent-2026-11-22-105718.ips",
                           "set kbd NiceValue=5",
                           "set kbd NiceValue=5 --force",
                           "set --dry-run kbd NiceValue=5",
                           "unset kbd NiceValue",
                           "remove kbd",
                           "enable",
                           "disable",
                           "enable --dry-run",
                           "preset",
                           "preset --replace",
                           "undo",
                           "undo 2",
                           "undo --list",
                           "apply",
                           "apply kbd --again",
                           "profile save x",
                           "profile list",
                           "profile use x --dry-run",
                           "export"}) {
    EXPECT_TRUE(web::isAllowed(wordsOf(line))) << line;
  }
}

TEST(PageCommands, ExcludeAllOthers) {
  for (const char* line : {"",
                           "release",
                           "import x",
                           "import -",
                           "web",
                           "web --new-key",
                           "__complete set",
                           "help",
                           "Status",
                           "statu",
                           "--json status",
                           "--lang zh status",
                           "-h",
                           "--version",
                           "status --json",
                           "status --lang zh",
                           "status --help",
                           "status -h",
                           "status --watch",
                           "status --interval 1",
                           "list x",
                           "show a b",
                           "check file.plist",
                           "check -- file.plist",
                           "export file.plist",
                           "export -",
                           "export --force",
                           "export -- file.plist",
                           "log --all",
                           "log -f",
                           "log -nf",
                           "log -fn 5",
                           "log --follow",

                           "log -n5",
                           "log -n=5",
                           "log -n 10000",
                           "log -n -1",
                           "log -n x",
                           "log --lines=10000",
                           "log --lines=",
                           "log --english=1",
                           "log x",
                           "log --category=kernel --all",
                           "preset --replace-file",
                           "set kbd --no-apply",
                           "set kbd NiceValue=5 --force=1",
                           "set kbd NiceValue=5 --forc",
                           "apply --again --force",
                           "undo 1 2",
                           "profile use a b",
                           "enable x",
                           "match a b"}) {
    EXPECT_FALSE(web::isAllowed(wordsOf(line))) << line;
  }
  EXPECT_FALSE(web::isAllowed({}));
}

TEST(PageCommands, GiveTheOutputInOneLine) {
  ControlStory story;
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", 5}}}});
  EXPECT_EQ(resultOf("list"),
            R"(0 {"schema": 1,"enabled": true,"targets": {"alpha": {"NiceValue": 5}}} null)");
  const std::string status = web::runCommand({"status"}, Language::English).output;
  EXPECT_EQ(PrintedJson::parse(status), PrintedJson::parse(story.run({"status", "--json"}).out));
  EXPECT_EQ(status.find('\n'), status.npos);
}

TEST(PageCommands, SpeakTheLanguageAskedFor) {
  ControlStory story;
  story.writeTargets({});
  const web::Words words{"show", "alpha"};
  EXPECT_EQ(resultOf(words),
            R"(2 null {"code":"wrong-usage","message":"no target alpha is configured"})");
  EXPECT_EQ(resultOf(words, Language::Chinese),
            R"(2 null {"code":"wrong-usage","message":"没有配置目标 alpha"})");
  EXPECT_EQ(resultOf("log -n"), R"(2 [] {"code":"wrong-usage","message":"--lines needs a value"})");
}

TEST(PageCommands, ListTheLinesOfTheLog) {
  ControlStory story;
  story.writeTargets({});
  EXPECT_EQ(resultOf("log").substr(0, 5), "3 [] ");
  writeAll(story.logFile(),
           "[03-04 05:06:07] [守护] a\n[03-04 05:06:08] [守护] b\n[03-04 05:06:09] [守护] c\n");
  const web::CommandResult result = web::runCommand({"log", "-n", "2"}, Language::Chinese);
  const PrintedJson lines = PrintedJson::parse(result.output);
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0]["text"], "b");
  EXPECT_EQ(lines[1]["text"], "c");
  EXPECT_EQ(result.error, "null");
}

TEST(PageCommands, EditWithTheGuards) {
  EditStory story;
  story.writeTargets({});
  EXPECT_EQ(resultOf("set kbd NiceValue=5 --dry-run").substr(0, 2), "0 ");
  EXPECT_EQ(story.bytes().find("kbd"), std::string::npos);
  EXPECT_EQ(resultOf("set kbd NiceValue=5").substr(0, 2), "0 ");
  EXPECT_NE(story.bytes().find("<key>kbd</key>"), std::string::npos);
  const std::string before = story.bytes();
  const web::CommandResult harm =
      web::runCommand({"set", "SpringBoard", "MemLimitActive=3000"}, Language::English);
  const Output refusal = story.run({"set", "SpringBoard", "MemLimitActive=3000", "--json"});
  EXPECT_EQ(harm.status, refusal.status);
  EXPECT_NE(harm.status, 0);
  EXPECT_EQ(PrintedJson::parse(harm.error), PrintedJson::parse(refusal.err)["error"]);
  EXPECT_EQ(story.bytes(), before);
  EXPECT_EQ(resultOf("undo").substr(0, 2), "0 ");
  EXPECT_EQ(story.bytes().find("kbd"), std::string::npos);
}

}  // namespace
}  // namespace vorlatch::tests
