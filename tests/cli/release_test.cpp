// vorlatchctl release: everything is handed back, and the preferences come to no harm.
#include <filesystem>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

// Two targets that the daemon holds, 101 and 102.
struct TwoHeld : HeldStory {
  TwoHeld() {
    device.launch({.name = "beta"});
    writeTargets({{"alpha", kAlphaSettings}, {"beta", Dictionary{{"NiceValue", 4}}}});
    postAndRun();
    EXPECT_EQ(status().size(), 2U);
    before = readAll(preferencesFile());
  }
  void expectHandedBack() {
    EXPECT_EQ(status(), Dictionary{});
    EXPECT_EQ(device.find(101)->nice_value, 0);
    EXPECT_EQ(device.find(102)->nice_value, 0);
    EXPECT_EQ(device.jetsam(101).active, model::MemoryLimit{});
    EXPECT_EQ(device.jetsam(101).inactive, model::MemoryLimit{});
    EXPECT_EQ(device.jetsam(101).managed, true);
    EXPECT_EQ(device.jetsam(101).effective_band, 0);
  }
  // The preferences as they were, with nothing beside them.
  void expectPreferencesBack() const {
    EXPECT_EQ(readAll(preferencesFile()), before);
    EXPECT_EQ(std::filesystem::exists(aside()), false);
  }
  [[nodiscard]] std::string aside() const { return preferencesFile() + ".released"; }

  std::string before;
};

TEST(Release, HandsEverythingBackAndStaysSwitchedOff) {
  TwoHeld story;
  const Dictionary targets{{"alpha", kAlphaSettings}, {"beta", Dictionary{{"NiceValue", 4}}}};
  EXPECT_EQ(story.run({"release"}), (Output{0, "handed back: alpha, beta\n", ""}));
  story.expectHandedBack();
  EXPECT_EQ(readDictionary(story.preferencesFile()),
            (Dictionary{{"Enabled", false}, {"AppConfigs", targets}}));
  story.device.exit(101);
  story.device.launch({.name = "alpha"});
  story.Story::run(1h);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, KeepsThePreferencesByteForByte) {
  TwoHeld story;
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{0, "handed back: alpha, beta\n", ""}));
  story.expectHandedBack();
  story.expectPreferencesBack();
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  story.Story::run(1min);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, AsJson) {
  TwoHeld story;
  EXPECT_EQ(story.run({"release", "--keep-preferences", "--json"}), (Output{0,
                                                                            R"({
  "released": [
    "alpha",
    "beta"
  ],
  "preferences_kept": true
}
)",
                                                                            ""}));
}

TEST(Release, NothingIsHeld) {
  ControlStory story;
  story.writeTargets({{"alpha", kAlphaSettings}});
  EXPECT_EQ(story.run({"release"}), (Output{0, "nothing was held\n", ""}));
  EXPECT_EQ(readDictionary(story.preferencesFile()).at("Enabled"), plist::Value(false));
}

TEST(Release, AnEntryOfAProcessThatIsGoneIsNotWaitedFor) {
  HeldStory story;
  story.device.exit(101);
  story.device.exit(100);
  EXPECT_EQ(story.run({"release"}), (Output{0, "nothing was held\n", ""}));
}

TEST(Release, WithoutPreferencesNothingIsPutBack) {
  ControlStory story;
  EXPECT_EQ(story.run({"release", "--keep-preferences"}), (Output{0, "nothing was held\n", ""}));
  EXPECT_EQ(std::filesystem::exists(story.preferencesFile()), false);
}

TEST(Release, WithoutADaemonNothingCanBeHandedBack) {
  TwoHeld story;
  story.device.exit(100);
  const Output expected{3, "",
                        "vorlatchctl: the daemon does not run, so alpha, beta stay as they are "
                        "until they end; start it and run this again\n"};
  EXPECT_EQ(story.run({"release", "--keep-preferences"}), expected);
  story.expectPreferencesBack();
  EXPECT_EQ(story.run({"release"}), expected);
}

TEST(Release, ADaemonThatHearsNothing) {
  ControlStory story;
  story.launchDaemon();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", kAlphaSettings}});
  const std::string before = readAll(story.preferencesFile());
  const Dictionary status{{"alpha", Dictionary{{"pid", 101}, {"n", -7}, {"p", 100}}}};
  ASSERT_TRUE(writePropertyList(story.statusFile(), status));
  const auto begin_ns = story.device.scheduler.nowNs();
  EXPECT_EQ(story.run({"release", "--keep-preferences", "--timeout", "3"}),
            (Output{3, "",
                    "vorlatchctl: after 3 s the daemon still reports alpha; vorlatchctl log shows "
                    "what it does. A daemon that was started while it was switched off knows of "
                    "none: vorlatchctl enable, then this again\n"}));
  EXPECT_EQ(story.device.scheduler.nowNs() - begin_ns, 3'000'000'000U);
  EXPECT_EQ(readAll(story.preferencesFile()), before);
  EXPECT_EQ(std::filesystem::exists(story.preferencesFile() + ".released"), false);
}

// What is held is nothing yet, but the target's own timer would hold it when it starts.
TEST(Release, TheDaemonIsToldThoughNothingIsHeld) {
  HeldStory story({{"NiceValue", -7}, {"CheckInterval", 5}}, {.name = "other"});
  EXPECT_EQ(story.run({"release", "--keep-preferences"}), (Output{0, "nothing was held\n", ""}));
  story.device.launch({.name = "alpha"});
  story.Story::run(1min);
  EXPECT_EQ(story.device.find(102)->nice_value, 0);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, InterruptedThePreferencesArePutBack) {
  TwoHeld story;
  story.is_interrupted = [&story](int waits) {
    EXPECT_EQ(std::filesystem::exists(story.aside()), true);
    return waits == 2;
  };
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{3, "", "vorlatchctl: interrupted\n"}));
  story.expectPreferencesBack();
}

TEST(Release, WhileItWaitsThePreferencesAreSwitchedOffAndOtherwiseTheSame) {
  TwoHeld story;
  Dictionary meanwhile;
  story.is_interrupted = [&](int /*waits*/) {
    meanwhile = readDictionary(story.preferencesFile());
    return false;
  };
  EXPECT_EQ(story.run({"release", "--keep-preferences"}).status, 0);
  EXPECT_EQ(meanwhile,
            (Dictionary{{"Enabled", false},
                        {"AppConfigs", Dictionary{{"alpha", kAlphaSettings},
                                                  {"beta", Dictionary{{"NiceValue", 4}}}}}}));
}

TEST(Release, WhatAKilledRunSetAsideIsPutBackByTheNext) {
  TwoHeld story;
  Dictionary off = readDictionary(story.preferencesFile());
  off.insert_or_assign("Enabled", false);
  std::filesystem::rename(story.preferencesFile(), story.aside());
  story.writePreferences(off);
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{0, "handed back: alpha, beta\n", ""}));
  story.expectHandedBack();
  story.expectPreferencesBack();
}

TEST(Release, WhatAKilledRunSetAsideIsPutBackWhereNothingStands) {
  TwoHeld story;
  std::filesystem::rename(story.preferencesFile(), story.aside());
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{0, "handed back: alpha, beta\n", ""}));
  story.expectPreferencesBack();
}

TEST(Release, WhatAKilledRunSetAsideIsNotPutBackOverALaterEdit) {
  TwoHeld story;
  std::filesystem::rename(story.preferencesFile(), story.aside());
  story.writeTargets({{"gamma", Dictionary{{"NiceValue", 1}}}});
  story.before = readAll(story.preferencesFile());
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{0, "handed back: alpha, beta\n", ""}));
  story.expectPreferencesBack();
}

TEST(Release, WhatAKilledRunSetAsideIsPutBackThoughNothingIsHeld) {
  ControlStory story;
  story.writeTargets({{"alpha", kAlphaSettings}});
  const std::string before = readAll(story.preferencesFile());
  const std::string aside = story.preferencesFile() + ".released";
  std::filesystem::create_hard_link(story.preferencesFile(), aside);
  EXPECT_EQ(story.run({"release", "--keep-preferences"}), (Output{0, "nothing was held\n", ""}));
  EXPECT_EQ(readAll(story.preferencesFile()), before);
  EXPECT_EQ(std::filesystem::exists(aside), false);
}

TEST(Release, PreferencesThatCannotBeReadAreLeftAsTheyAre) {
  TwoHeld story;
  writeAll(story.preferencesFile(), "no property list");
  const Output expected{3, "",
                        "vorlatchctl: " + story.preferencesFile() +
                            " is no property list with a dictionary, and is left as it is; "
                            "vorlatchctl check says more, vorlatchctl preset --replace-file starts "
                            "afresh\n"};
  EXPECT_EQ(story.run({"release"}), expected);
  EXPECT_EQ(story.run({"release", "--keep-preferences"}), expected);
  EXPECT_EQ(readAll(story.preferencesFile()), "no property list");
  EXPECT_EQ(std::filesystem::exists(story.aside()), false);
}

TEST(Release, ATimeoutOfNothingIsWrongUsage) {
  TwoHeld story;
  EXPECT_EQ(story.run({"release", "--timeout", "0"}).status, 2);
  story.expectPreferencesBack();
}

TEST(Release, InterruptedBeforeTheDaemonHasLookedItHasNotReleased) {
  HeldStory story({{"CheckInterval", 5}}, {.name = "other"});
  story.is_interrupted = [](int) { return true; };
  const std::string before = readAll(story.preferencesFile());
  EXPECT_EQ(story.run({"release", "--keep-preferences"}),
            (Output{3, "", "vorlatchctl: interrupted\n"}));
  EXPECT_EQ(readAll(story.preferencesFile()), before);
}

TEST(Release, OfAnEditBesideWhatAKilledRunSetAsideOnlyTheSwitchIsPutBack) {
  TwoHeld story;
  std::filesystem::rename(story.preferencesFile(), story.aside());
  story.writePreferences({{"Enabled", false}, {"AppConfigs", Dictionary{{"gamma", Dictionary{}}}}});
  EXPECT_EQ(story.run({"release", "--keep-preferences"}).status, 0);
  EXPECT_EQ(readDictionary(story.preferencesFile()),
            (Dictionary{{"Enabled", true}, {"AppConfigs", Dictionary{{"gamma", Dictionary{}}}}}));
  EXPECT_EQ(std::filesystem::exists(story.aside()), false);
}

TEST(Release, AnotherProcessUnderTheOldIdIsNotWaitedFor) {
  ControlStory story;
  story.writeTargets({{"alpha", kAlphaSettings}});
  const std::int32_t pid = story.device.launch({.name = "somebody else"});
  ASSERT_TRUE(writePropertyList(
      story.statusFile(), Dictionary{{"alpha", Dictionary{{"pid", pid}, {"n", 0}, {"p", 0}}}}));
  EXPECT_EQ(story.run({"release"}), (Output{0, "nothing was held\n", ""}));
}

}  // namespace
}  // namespace vorlatch::tests
