// The configured targets, one of them, and the bands: as people see them on a wide and on a narrow
// terminal, with and without colour, and as programs do.
#include <nlohmann/json.hpp>
#include <string>

#include <gtest/gtest.h>

#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

using plist::Data;
using plist::Date;

TEST(List, AlignsColumnsOrCutsThem) {
  ControlStory story;
  story.writeTargets(dictionary(R"({
  "SpringBoard": {"JetsamPriority": 210, "NiceValue": -19, "Remark": "视图"},
  "com.tencent.xin": {"CheckInterval": 30, "MemLimitActive": 1024, "MemLimitInactive": 0,
                      "Remark": "微信.xin", "StripManaged": true},
  "微信": {"NiceValue": "5", "Own": [1, 2]}, "odd": 7})"));
  EXPECT_EQ(story.answer("list --json"), pretty(R"({"enabled": true, "targets": {
      "SpringBoard": {"JetsamPriority": 210, "NiceValue": -19, "Remark": "视图"},
      "com.tencent.xin": {"CheckInterval": 30, "MemLimitActive": 1024, "MemLimitInactive": 0,
                          "Remark": "微信.xin", "StripManaged": true},
      "微信": {"NiceValue": "5", "Own": [1, 2]}}})"));
  EXPECT_EQ(story.answer("list"), R"(switched on
TARGET           CheckInterval  JetsamPriority  MemLimitActive  MemLimitInactive  NiceValue  StripManaged  Remark
SpringBoard                  -             210               -                 -        -19  -             视图
com.tencent.xin             30               -            1024                 0          -  true          微信.xin
微信                         -               -               -                 -          5  -             -
)");
  const std::string wide = story.answer("list");
  story.columns = 115;
  EXPECT_EQ(story.answer("list"), wide);
  story.columns = 70;
  EXPECT_EQ(story.answer("list"), R"(switched on
TARGET           CheckInterval  JetsamPriority  MemLimitActive
SpringBoard                  -             210               -
com.tencent.xin             30               -            1024
微信                         -               -               -
)");
}

TEST(List, SaysThatThereAreNoTargets) {
  ControlStory story;
  EXPECT_EQ(story.answer("list"), "switched off\nno targets\n");
  story.writePreferences({{"Enabled", false}, {"AppConfigs", 7}});
  EXPECT_EQ(story.answer("list"), "switched off\nno targets\n");
  EXPECT_EQ(story.answer("list --json"), pretty(R"({"enabled": false, "targets": {}})"));
  story.writeTargets({{"alpha", Dictionary{}}});
  EXPECT_EQ(story.answer("show alpha"), "KEY  VALUE  MEANING\nnot running\n");
}

TEST(Show, SaysWhatEachSettingMeans) {
  ControlStory story;
  Dictionary settings = dictionary(
      R"({"CheckInterval": 60, "JetsamPriority": 160, "MemLimitActive": 1024, "MemLimitInactive": 0,
          "NiceValue": -5, "Remark": "微信\u001b[31m", "StripManaged": false, "a real": 1048576.5})");
  settings.emplace("Own", Data{"\x01\xFF"});
  settings.emplace("Wann", Date{1234});
  story.writeTargets({{"alpha", settings}});
  EXPECT_EQ(story.answer("show alpha"), R"(KEY               VALUE       MEANING
CheckInterval     60          seconds between looks of the target's own timer; 0: none, the patrol looks every 1800 s
JetsamPriority    160         jetsam band to hold the process at; -1: left alone, 0: the system's default
MemLimitActive    1024        memory limit in MB while active; 0: the system's default
MemLimitInactive  0           memory limit in MB while inactive; 0: the system's default
NiceValue         -5          nice value to hold the process at
Own               2 bytes     unknown to the daemon
Remark            微信^[[31m  a note for yourself; the daemon never reads it
StripManaged      false       whether to take the process out of the system's memory management
Wann              date        unknown to the daemon
a real            1048576.5   unknown to the daemon
not running
)");
  EXPECT_EQ(
      story.answer("show alpha --json"),
      pretty(
          R"({"target": "alpha", "display_name": null, "settings": {"CheckInterval": 60, "JetsamPriority": 160,
  "MemLimitActive": 1024, "MemLimitInactive": 0, "NiceValue": -5, "Own": {"data": "01ff"},
  "Remark": "微信\u001b[31m", "StripManaged": false, "Wann": {"date": 1234.0},
  "a real": 1048576.5},
  "pid": null, "verdict": "not-running", "verdict_text": "not running", "memory": null,
  "last_kill": null})"));
}

TEST(Show, SaysHowARunningTargetStands) {
  HeldStory story(kAlphaSettings, {.name = "alpha"});
  story.device.find(101)->memory = {{.footprint_bytes = 1 << 20, .peak_bytes = 2 << 20}};
  story.columns = 40;  // too narrow for the meanings
  story.has_colour = true;
  EXPECT_EQ(story.answer("show alpha"),
            "\x1b[1mKEY\x1b[0m               \x1b[1mVALUE\x1b[0m\n"
            "JetsamPriority      100\n"
            "MemLimitActive     1500\n"
            "MemLimitInactive   1000\n"
            "NiceValue            -7\n"
            "held, runs as 101, memory MB 1, peak 2, 0 % ..........\n");
}

TEST(Show, RefusesWhatIsNotConfigured) {
  ControlStory story;
  story.writeTargets({{"kbd", Dictionary{}}, {"odd", 7}});
  const std::string refused = "err: vorlatchctl: no target ";
  EXPECT_EQ(story.answer("show KDB"), refused + "KDB is configured; did you mean kbd?\nexit 2\n");
  EXPECT_EQ(
      story.answer("show odd --json"),
      R"(err: {"schema":1,"error":{"code":"wrong-usage","message":"no target odd is configured"}})"
      "\nexit 2\n");
  writeAll(story.preferencesFile(), "no property list");
  for (const char* line : {"list", "show kbd"}) {
    EXPECT_EQ(story.answer(line), kNoPreferences) << line;
  }
}

constexpr const char* kBands = R"(NAME                 TO IOS 15  SINCE IOS 16
idle                         0             0
aging1                       1            10  reserved: the kernel makes it idle
aging2                       2            20  reserved: the kernel makes it idle
background                   3            30
mail                         4            40
phone                        5            50
freezer                      -            75
ui-support                   8            80
foreground-support           9            90
foreground                  10           100
audio-and-accessory         12           120
conductor                   13           130
driver                      15           150
home                        16           160
executive                   17           170
important                   18           180
default                     18           180
telephony                   19           190
critical                    19           190
highest                     21           210
)";

TEST(Bands, HaveNumbersOfBothKinds) {
  ControlStory story;
  EXPECT_EQ(story.answer("bands"), kBands);
  // As JSON, one that is reserved and one that has no number to iOS 15.
  const auto bands = nlohmann::json::parse(story.answer("bands --json")).at("bands");
  EXPECT_EQ(bands.size(), 20U);
  EXPECT_EQ(bands.at(1), nlohmann::json::parse(R"({"name": "aging1", "to_ios15": 1,
      "since_ios16": 10, "reserved": true})"));
  EXPECT_EQ(bands.at(6), nlohmann::json::parse(R"({"name": "freezer", "to_ios15": null,
      "since_ios16": 75, "reserved": false})"));
}

}  // namespace
}  // namespace vorlatch::tests
