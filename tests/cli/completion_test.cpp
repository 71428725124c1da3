// What the shells are offered in place of the last word.
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

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
  // The words typed, the unfinished one last (behind a blank a new one begins), and the words that
  // are offered in its place, commas between them.
  void expectOffers(const std::vector<std::pair<std::string, std::string>>& offers) {
    for (const auto& [typed, offered] : offers) {
      std::string lines = offered.empty() ? "" : offered + "\n";
      for (char& c : lines) c = c == ',' ? '\n' : c;
      EXPECT_EQ(answer("__complete -- " + typed), lines) << typed;
    }
  }
};

TEST(Completion, OfCommandsOptionsAndNames) {
  Shell shell;
  const std::string all =
      "status,list,show,kills,set,unset,remove,enable,disable,preset,undo,export,import,profile,"
      "apply,"
      "release,plan,match,ps,check,"
      "log,bands,doctor,web,help";
  shell.expectOffers({{"", all},
                      {"--json ", all},
                      {"re", "remove,release"},
                      {"xyz", ""},
                      {"-", "--json,--lang,--help,--version"},
                      {"status --", "--watch,--interval,--json,--lang,--help,--version"},
                      {"release --k", "--keep-preferences"},
                      {"set backboardd --no", "--no-apply"},
                      {"log --follow --e", "--english"},
                      {"show ", "backboardd,微信"},
                      {"show 微", "微信"},
                      {"show backboardd ", ""},
                      {"status 微信 ", "backboardd,微信"},
                      {"remove backboardd b", "backboardd"},
                      {"unset ", "backboardd,微信"},
                      {"match ", "WeChat,backboardd,com.tencent.xin"},
                      {"match WeChat ", ""},
                      {"set ", "backboardd,微信,WeChat,com.tencent.xin"}});
  EXPECT_EQ(shell.answer("__complete --"), shell.answer("__complete -- "));
}

// The value of an option is no word of the command's own.
TEST(Completion, OfValues) {
  Shell shell;
  shell.expectOffers(
      {{"log --target ", "backboardd,微信"},
       {"log --target -", ""},
       {"log --category 内", "内核,内存优先级,内存限制"},
       {"log --category p", "preferences,process,patrol"},
       {"log -n ", ""},
       {"status --interval ", ""},
       {"status --interval 5 b", "backboardd"},
       {"set 微信 Mem", "MemLimitActive=,MemLimitInactive="},
       {"set 微信 NiceValue=-5 S", "StripManaged="},
       {"set 微信 StripManaged=", "StripManaged=true,StripManaged=false"},
       {"set 微信 JetsamPriority=f",
        "JetsamPriority=freezer,JetsamPriority=foreground-support,JetsamPriority=foreground"},
       {"set 微信 JetsamPriority=ag", ""},
       {"set 微信 NiceValue=", ""},
       {"set 微信 Unknown=", ""},
       {"unset 微信 Nice", "NiceValue"}});
  // Nothing begins with these: words that begin so in another case, or that contain them.
  shell.expectOffers({{"set 微信 nice", "NiceValue="},
                      {"set 微信 limit", "MemLimitActive=,MemLimitInactive="},
                      {"set 微信 JetsamPriority=FORE",
                       "JetsamPriority=foreground-support,JetsamPriority=foreground"},
                      {"match chat", "WeChat"},
                      {"match none", ""}});
}

// A name that would break the list apart or command the terminal is not offered.
TEST(Completion, OffersNothingItCannotKnow) {
  Shell shell;
  for (const char* name : {"two\nlines", "no utf-8 \xff", "two words", "\x1b[2J"}) {
    shell.device.launch({.name = name});
  }
  shell.expectOffers({{"match t", "two words"},
                      {"match no", ""},
                      {"match \x1b", ""},
                      {"plan ", ""},
                      {"unknown ", ""}});
  writeAll(shell.preferencesFile(), "no property list");
  shell.expectOffers({{"show ", ""}});
}

}  // namespace
}  // namespace vorlatch::tests
