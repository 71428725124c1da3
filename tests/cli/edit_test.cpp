// The commands that change the preferences: what is written, what is said, and what is left alone.
#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

TEST(Edit, SetAddsATargetAndTellsTheDaemon) {
  ControlStory story;
  story.writeTargets({});
  story.device.launch({.name = "backboardd"});
  story.startAndSettle();
  EXPECT_EQ(story.run({"set", "backboardd", "NiceValue=-5", "JetsamPriority=foreground"}),
            (Output{0,
                    "AppConfigs / backboardd / JetsamPriority: (none) -> 100\n"
                    "AppConfigs / backboardd / NiceValue: (none) -> -5\n",
                    ""}));
  EXPECT_EQ(
      readAll(story.preferencesFile()),
      platform::writeXmlPropertyList(Dictionary{
          {"Enabled", true},
          {"AppConfigs",
           Dictionary{{"backboardd", Dictionary{{"JetsamPriority", 100}, {"NiceValue", -5}}}}}}));
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  story.Story::run(150ms);
  EXPECT_EQ(story.takeLog().at(1), "[进程] 目标: backboardd 已启动 PID: 100 ");
}

}  // namespace
}  // namespace vorlatch::tests
