// What the shells are offered in place of the last word.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

// Two targets are configured; one app and one daemon run.
struct Shell : ControlStory {
  Shell() {
    device.exit(getpid());
    const auto app =
        installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}});
    device.launch({.name = "WeChat", .executable_path = app});
    device.launch({.name = "backboardd"});
    writeTargets({{"backboardd", Dictionary{}}, {"微信", Dictionary{}}});
  }
  // The words that may stand in place of the last one.
  std::string offered(std::vector<std::string> words) {
    words.insert(words.begin(), {"__complete", "--"});
    const Output output = run(words);
    EXPECT_EQ(output.status, 0);
    EXPECT_EQ(output.err, "");
    return output.out;
  }
};

TEST(Completion, Commands) {
  Shell shell;
  const std::string all =
      "status\nlist\nshow\nset\nunset\nremove\nenable\ndisable\npreset\napply\nrelease\nplan\n"
      "match\nps\ncheck\nlog\nbands\ndoctor\n";
  EXPECT_EQ(shell.offered({""}), all);
  EXPECT_EQ(shell.offered({}), all);
  EXPECT_EQ(shell.offered({"--json", ""}), all);
  EXPECT_EQ(shell.offered({"re"}), "remove\nrelease\n");
  EXPECT_EQ(shell.offered({"xyz"}), "");
}

TEST(Completion, Options) {
  Shell shell;
  EXPECT_EQ(shell.offered({"-"}), "--help\n--json\n");
  EXPECT_EQ(shell.offered({"status", "--"}), "--help\n--json\n--watch\n--interval\n");
  EXPECT_EQ(shell.offered({"release", "--k"}), "--keep-preferences\n");
  EXPECT_EQ(shell.offered({"set", "backboardd", "--no"}), "--no-apply\n");
  EXPECT_EQ(shell.offered({"log", "--follow", "-"}),
            "--help\n--json\n--lines\n--follow\n--target\n--category\n");
}

TEST(Completion, ConfiguredTargets) {
  Shell shell;
  const std::string both = "backboardd\n微信\n";
  EXPECT_EQ(shell.offered({"show", ""}), both);
  EXPECT_EQ(shell.offered({"show", "微"}), "微信\n");
  EXPECT_EQ(shell.offered({"show", "backboardd", ""}), "");
  EXPECT_EQ(shell.offered({"status", "微信", ""}), both);
  EXPECT_EQ(shell.offered({"remove", "backboardd", "b"}), "backboardd\n");
  EXPECT_EQ(shell.offered({"unset", ""}), both);
}

TEST(Completion, TheValuesOfOptions) {
  Shell shell;
  EXPECT_EQ(shell.offered({"log", "--target", ""}), "backboardd\n微信\n");
  EXPECT_EQ(shell.offered({"log", "--target", "-"}), "");
  EXPECT_EQ(shell.offered({"log", "--category", "内"}), "内核\n内存优先级\n内存限制\n");
  EXPECT_EQ(shell.offered({"log", "-n", ""}), "");
  EXPECT_EQ(shell.offered({"status", "--interval", ""}), "");
  // The value is no word of the command's own.
  EXPECT_EQ(shell.offered({"status", "--interval", "5", "b"}), "backboardd\n");
}

TEST(Completion, RunningNames) {
  Shell shell;
  EXPECT_EQ(shell.offered({"match", ""}), "WeChat\nbackboardd\ncom.tencent.xin\n");
  EXPECT_EQ(shell.offered({"match", "WeChat", ""}), "");
  EXPECT_EQ(shell.offered({"set", ""}), "backboardd\n微信\nWeChat\ncom.tencent.xin\n");
}

TEST(Completion, SettingsAndTheirValues) {
  Shell shell;
  EXPECT_EQ(shell.offered({"set", "微信", "Mem"}), "MemLimitActive=\nMemLimitInactive=\n");
  EXPECT_EQ(shell.offered({"set", "微信", "NiceValue=-5", "S"}), "StripManaged=\n");
  EXPECT_EQ(shell.offered({"set", "微信", "StripManaged="}),
            "StripManaged=true\nStripManaged=false\n");
  EXPECT_EQ(shell.offered({"set", "微信", "JetsamPriority=f"}),
            "JetsamPriority=freezer\nJetsamPriority=foreground-support\n"
            "JetsamPriority=foreground\n");
  EXPECT_EQ(shell.offered({"set", "微信", "JetsamPriority=ag"}), "");
  EXPECT_EQ(shell.offered({"set", "微信", "NiceValue="}), "");
  EXPECT_EQ(shell.offered({"set", "微信", "Unknown="}), "");
  EXPECT_EQ(shell.offered({"unset", "微信", "Nice"}), "NiceValue\n");
}

TEST(Completion, NothingWhereNothingCanBeKnown) {
  Shell shell;
  EXPECT_EQ(shell.offered({"plan", ""}), "");
  EXPECT_EQ(shell.offered({"unknown", ""}), "");
  writeAll(shell.preferencesFile(), "no property list");
  EXPECT_EQ(shell.offered({"show", ""}), "");
}

TEST(Completion, ANameThatWouldBreakTheListApartIsNotOffered) {
  Shell shell;
  shell.device.launch({.name = "two\nlines"});
  shell.device.launch({.name = "no utf-8 \xff"});
  shell.device.launch({.name = "two words"});
  shell.device.launch({.name = "\x1b[2J"});
  EXPECT_EQ(shell.offered({"match", "t"}), "two words\n");
  EXPECT_EQ(shell.offered({"match", "no"}), "");
  EXPECT_EQ(shell.offered({"match", "\x1b"}), "");
}

}  // namespace
}  // namespace vorlatch::tests
