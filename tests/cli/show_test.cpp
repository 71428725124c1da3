// The configured targets, one of them, and the bands: as people see them on a wide and on a narrow
// terminal, with and without colour, and as programs do.
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Array;
using plist::Data;
using plist::Date;
using plist::Dictionary;

Dictionary targets() {
  return {
      {"SpringBoard", Dictionary{{"JetsamPriority", 210}, {"NiceValue", -19}, {"Remark", "视图"}}},
      {"com.tencent.xin", Dictionary{{"CheckInterval", 30},
                                     {"MemLimitActive", 1024},
                                     {"MemLimitInactive", 0},
                                     {"Remark", "微信.xin"},
                                     {"StripManaged", true}}},
      {"微信", Dictionary{{"NiceValue", "5"}, {"Own", Array{1, 2}}}},
      {"odd", 7}};
}

constexpr const char* kWide =
    "switched on\n"
    "TARGET           CheckInterval  JetsamPriority  MemLimitActive  MemLimitInactive  NiceValue  "
    "StripManaged  Remark\n"
    "SpringBoard                  -             210               -                 -        -19  "
    "-             视图\n"
    "com.tencent.xin             30               -            1024                 0          -  "
    "true          微信.xin\n"
    "微信                         -               -               -                 -          5  "
    "-             -\n";

TEST(List, ShowsEveryTargetInAlignedColumns) {
  ControlStory story;
  story.writeTargets(targets());
  EXPECT_EQ(story.run({"list"}), (Output{0, kWide, ""}));
  story.columns = 200;
  EXPECT_EQ(story.run({"list"}), (Output{0, kWide, ""}));
}

TEST(List, CutsTheWidestColumnsOnANarrowTerminal) {
  ControlStory story;
  story.writeTargets(targets());
  story.columns = 70;
  EXPECT_EQ(story.run({"list"}),
            (Output{0,
                    "switched on\n"
                    "TARGET   CheckI…  Jetsam…  MemLim…  MemLim…  NiceVa…  StripM…  Remark\n"
                    "Spring…        -      210        -        -      -19  -        视图\n"
                    "com.te…       30        -     1024        0        -  true     微信.x…\n"
                    "微信           -        -        -        -        5  -        -\n",
                    ""}));
}

TEST(List, KeepsATextsColumnsWhereItIsColoured) {
  ControlStory story;
  story.writeTargets({{"微信", Dictionary{{"NiceValue", 5}}}});
  story.has_colour = true;
  EXPECT_EQ(story.run({"list"}),
            (Output{0,
                    "switched on\n"
                    "\x1b[1mTARGET\x1b[0m  \x1b[1mCheckInterval\x1b[0m  "
                    "\x1b[1mJetsamPriority\x1b[0m  \x1b[1mMemLimitActive\x1b[0m  "
                    "\x1b[1mMemLimitInactive\x1b[0m  \x1b[1mNiceValue\x1b[0m  "
                    "\x1b[1mStripManaged\x1b[0m  \x1b[1mRemark\x1b[0m\n"
                    "微信    -              -               -               -                 "
                    "        5  -             -\n",
                    ""}));
}

TEST(List, SaysThatItIsSwitchedOffAndWhenThereAreNoTargets) {
  ControlStory story;
  const Output nothing{0, "switched off\nno targets\n", ""};
  EXPECT_EQ(story.run({"list"}), nothing);
  story.writePreferences({{"Enabled", false}, {"AppConfigs", 7}});
  EXPECT_EQ(story.run({"list"}), nothing);
  EXPECT_EQ(story.run({"list", "--json"}),
            (Output{0, "{\n  \"enabled\": false,\n  \"targets\": {}\n}\n", ""}));
}

TEST(List, GivesPreferencesThatCannotBeReadAsAFailure) {
  ControlStory story;
  writeAll(story.preferencesFile(), "no property list");
  const Output failure{3, "",
                       "vorlatchctl: " + story.preferencesFile() +
                           " is no property list with a dictionary, and is left as it is; "
                           "vorlatchctl check says more, vorlatchctl preset --replace-file starts "
                           "afresh\n"};
  EXPECT_EQ(story.run({"list"}), failure);
  EXPECT_EQ(story.run({"list", "--json"}), failure);
  EXPECT_EQ(story.run({"show", "alpha"}), failure);
  EXPECT_EQ(story.run({"show", "alpha", "--json"}), failure);
  EXPECT_EQ(readAll(story.preferencesFile()), "no property list");
}

TEST(List, IsJsonForPrograms) {
  ControlStory story;
  story.writeTargets(targets());
  EXPECT_EQ(story.run({"list", "--json"}), (Output{0,
                                                   R"({
  "enabled": true,
  "targets": {
    "SpringBoard": {
      "JetsamPriority": 210,
      "NiceValue": -19,
      "Remark": "视图"
    },
    "com.tencent.xin": {
      "CheckInterval": 30,
      "MemLimitActive": 1024,
      "MemLimitInactive": 0,
      "Remark": "微信.xin",
      "StripManaged": true
    },
    "微信": {
      "NiceValue": "5",
      "Own": [
        1,
        2
      ]
    }
  }
}
)",
                                                   ""}));
}

// Every known key with its meaning, and what is none.
Dictionary oneTarget() {
  return {{"alpha", Dictionary{{"CheckInterval", 60},
                               {"JetsamPriority", 160},
                               {"MemLimitActive", 1024},
                               {"MemLimitInactive", 0},
                               {"NiceValue", -5},
                               {"Own", Data{"\x01\xFF"}},
                               {"Remark", "微信\x1b[31m"},
                               {"StripManaged", false},
                               {"Wann", Date{1234}},
                               {"a real", 1048576.5}}}};
}

TEST(Show, SaysWhatEachSettingMeans) {
  ControlStory story;
  story.writeTargets(oneTarget());
  EXPECT_EQ(
      story.run({"show", "alpha"}),
      (Output{
          0,
          "KEY               VALUE       MEANING\n"
          "CheckInterval     60          seconds between looks of the target's own timer; 0: none, "
          "the patrol looks every 1800 s\n"
          "JetsamPriority    160         jetsam band to hold the process at; -1: left alone, 0: "
          "the "
          "system's default\n"
          "MemLimitActive    1024        memory limit in MB while active; 0: the system's default\n"
          "MemLimitInactive  0           memory limit in MB while inactive; 0: the system's "
          "default\n"
          "NiceValue         -5          nice value to hold the process at\n"
          "Own               2 bytes     unknown to the daemon\n"
          "Remark            微信^[[31m  a note for yourself; the daemon never reads it\n"
          "StripManaged      false       whether to take the process out of the system's memory "
          "management\n"
          "Wann              date        unknown to the daemon\n"
          "a real            1048576.5   unknown to the daemon\n",
          ""}));
}

TEST(Show, CutsTheMeaningsOnANarrowTerminal) {
  ControlStory story;
  story.writeTargets({{"微信", Dictionary{{"NiceValue", -5}, {"Remark", "微信微信"}}}});
  story.columns = 40;
  story.has_colour = true;
  EXPECT_EQ(story.run({"show", "微信"}),
            (Output{0,
                    "\x1b[1mKEY\x1b[0m        \x1b[1mVALUE\x1b[0m     \x1b[1mMEANING\x1b[0m\n"
                    "NiceValue  -5        nice value to hold…\n"
                    "Remark     微信微信  a note for yoursel…\n",
                    ""}));
}

TEST(Show, IsJsonForPrograms) {
  ControlStory story;
  story.writeTargets(oneTarget());
  EXPECT_EQ(story.run({"show", "alpha", "--json"}), (Output{0,
                                                            R"({
  "target": "alpha",
  "settings": {
    "CheckInterval": 60,
    "JetsamPriority": 160,
    "MemLimitActive": 1024,
    "MemLimitInactive": 0,
    "NiceValue": -5,
    "Own": {
      "data": "01ff"
    },
    "Remark": "微信\u001b[31m",
    "StripManaged": false,
    "Wann": {
      "date": 1234.0
    },
    "a real": 1048576.5
  }
}
)",
                                                            ""}));
}

TEST(Show, SuggestsTheTargetThatWasMeant) {
  ControlStory story;
  story.writeTargets({{"kbd", Dictionary{}}, {"odd", 7}});
  for (const auto& [target, message] : std::vector<std::pair<std::string, std::string>>{
           {"kdb", "no target kdb is configured; did you mean kbd?"},
           {"KBD", "no target KBD is configured; did you mean kbd?"},
           {"sharingd", "no target sharingd is configured"},
           {"odd", "no target odd is configured"}}) {
    const Output refused{2, "", "vorlatchctl: " + message + "\n"};
    EXPECT_EQ(story.run({"show", target}), refused);
    EXPECT_EQ(story.run({"show", target, "--json"}), refused);
  }
}

TEST(Bands, AreShownWithTheNumbersOfBothKinds) {
  ControlStory story;
  const Output shown{0,
                     "NAME                 TO IOS 15  SINCE IOS 16\n"
                     "idle                         0             0\n"
                     "aging1                       1            10  reserved: the kernel makes it "
                     "idle\n"
                     "aging2                       2            20  reserved: the kernel makes it "
                     "idle\n"
                     "background                   3            30\n"
                     "mail                         4            40\n"
                     "phone                        5            50\n"
                     "freezer                      -            75\n"
                     "ui-support                   8            80\n"
                     "foreground-support           9            90\n"
                     "foreground                  10           100\n"
                     "audio-and-accessory         12           120\n"
                     "conductor                   13           130\n"
                     "driver                      15           150\n"
                     "home                        16           160\n"
                     "executive                   17           170\n"
                     "important                   18           180\n"
                     "default                     18           180\n"
                     "telephony                   19           190\n"
                     "critical                    19           190\n"
                     "highest                     21           210\n",
                     ""};
  EXPECT_EQ(story.run({"bands"}), shown);
}

std::string bandJson(const std::string& name, const std::string& to_ios15, int since_ios16,
                     const std::string& reserved) {
  return "    {\n      \"name\": \"" + name + "\",\n      \"to_ios15\": " + to_ios15 +
         ",\n      \"since_ios16\": " + std::to_string(since_ios16) +
         ",\n      \"reserved\": " + reserved + "\n    }";
}

TEST(Bands, AreJsonForPrograms) {
  ControlStory story;
  std::string bands = bandJson("idle", "0", 0, "false") + ",\n";
  bands += bandJson("aging1", "1", 10, "true") + ",\n" + bandJson("aging2", "2", 20, "true");
  const std::vector<std::tuple<const char*, const char*, int>> others{
      {"background", "3", 30},   {"mail", "4", 40},
      {"phone", "5", 50},        {"freezer", "null", 75},
      {"ui-support", "8", 80},   {"foreground-support", "9", 90},
      {"foreground", "10", 100}, {"audio-and-accessory", "12", 120},
      {"conductor", "13", 130},  {"driver", "15", 150},
      {"home", "16", 160},       {"executive", "17", 170},
      {"important", "18", 180},  {"default", "18", 180},
      {"telephony", "19", 190},  {"critical", "19", 190},
      {"highest", "21", 210}};
  for (const auto& [name, to_ios15, since_ios16] : others) {
    bands += ",\n" + bandJson(name, to_ios15, since_ios16, "false");
  }
  EXPECT_EQ(story.run({"bands", "--json"}),
            (Output{0, "{\n  \"bands\": [\n" + bands + "\n  ]\n}\n", ""}));
}

}  // namespace
}  // namespace vorlatch::tests
