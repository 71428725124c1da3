// vorlatchctl release: everything is handed back, and the preferences come to no harm.
#include <filesystem>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

const Dictionary kHeldTargets{{"alpha", kAlphaSettings}, {"beta", Dictionary{{"NiceValue", 4}}}};
const Dictionary kSwitchedOff{{"Enabled", false}, {"AppConfigs", kHeldTargets}};

constexpr const char* kKeep = "release --keep-preferences";
constexpr const char* kBoth = "handed back: alpha, beta\n";
constexpr const char* kNothing = "nothing was held\n";

std::string asideOf(const Story& story) {
  return story.preferencesFile() + ".released";
}

// The command gives the answer and leaves the preferences as these bytes, or as they were, with
// nothing beside them.
void expectKept(ControlStory& story, const std::string& line, const std::string& answer,
                std::string bytes = "as they were") {
  if (bytes == "as they were") bytes = readAll(story.preferencesFile());
  EXPECT_EQ(story.answer(line), answer);
  EXPECT_EQ(readAll(story.preferencesFile()), bytes);
  EXPECT_EQ(std::filesystem::exists(asideOf(story)), false);
}

// Two targets that the daemon holds, 101 and 102.
struct TwoHeld : HeldStory {
  TwoHeld() {
    device.launch({.name = "beta"});
    holdBoth();
    before = readAll(preferencesFile());
  }
  void holdBoth() {
    writeTargets(kHeldTargets);
    postAndRun();
    EXPECT_EQ(status().size(), 2U);
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
  // As a run does that is killed.
  void setAside() const { std::filesystem::rename(preferencesFile(), asideOf(*this)); }

  std::string before;
};

TEST(Release, HandsBackAndStaysSwitchedOff) {
  TwoHeld story;
  EXPECT_EQ(story.answer("release"), kBoth);
  story.expectHandedBack();
  EXPECT_EQ(readDictionary(story.preferencesFile()), kSwitchedOff);
  story.device.exit(101);
  story.device.launch({.name = "alpha"});
  story.Story::run(1h);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, KeepsPreferencesByteForByte) {
  TwoHeld story;
  Dictionary meanwhile;
  story.is_interrupted = [&](int /*waits*/) {
    meanwhile = readDictionary(story.preferencesFile());
    return false;
  };
  expectKept(story, "release --keep-preferences --json",
             pretty(R"({"released": ["alpha", "beta"], "preferences_kept": true})"));
  EXPECT_EQ(meanwhile, kSwitchedOff);
  story.expectHandedBack();
  EXPECT_EQ(modeOf(story.preferencesFile()), 0666U);
  story.Story::run(1min);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, SaysThatNothingWasHeld) {
  ControlStory story;
  expectKept(story, kKeep, kNothing, "");  // no file is made
  story.writeTargets({{"alpha", kAlphaSettings}});
  std::filesystem::create_hard_link(story.preferencesFile(), asideOf(story));
  expectKept(story, kKeep, kNothing);
  EXPECT_EQ(story.answer("release"), kNothing);
  EXPECT_EQ(readDictionary(story.preferencesFile()).at("Enabled"), plist::Value(false));
}

// The id may belong to another process by now.
TEST(Release, WaitsForNoProcessThatIsGone) {
  HeldStory story;
  story.device.exit(101);
  story.device.exit(100);
  EXPECT_EQ(story.answer("release"), kNothing);
  story.device.launch({.name = "somebody else", .pid = 101});
  EXPECT_EQ(story.answer("release"), kNothing);
}

TEST(Release, NeedsTheDaemon) {
  TwoHeld story;
  story.device.exit(100);
  const std::string refused =
      "err: vorlatchctl: the daemon does not run, so alpha, beta stay as they are until they end; "
      "start it and run this again\nexit 3\n";
  expectKept(story, kKeep, refused);
  EXPECT_EQ(story.answer("release"), refused);
}

TEST(Release, GivesUpOnADaemonThatHearsNothing) {
  ControlStory story;
  story.launchDaemon();
  story.device.launch({.name = "alpha"});
  story.writeTargets({{"alpha", kAlphaSettings}});
  const Dictionary status{{"alpha", Dictionary{{"pid", 101}, {"n", -7}, {"p", 100}}}};
  ASSERT_TRUE(writePropertyList(story.statusFile(), status));
  const auto begin_ns = story.device.scheduler.nowNs();
  expectKept(story, "release --keep-preferences --timeout 3",
             "err: vorlatchctl: after 3 s the daemon still reports alpha; vorlatchctl log shows "
             "what it does. A daemon that was started while it was switched off knows of none: "
             "vorlatchctl enable, then this again\nexit 3\n");
  EXPECT_EQ(story.device.scheduler.nowNs() - begin_ns, 3'000'000'000U);
}

// Nothing is held yet, but the target's own timer would hold it when it starts.
TEST(Release, TellsTheDaemonThoughNothingIsHeld) {
  HeldStory story({{"NiceValue", -7}, {"CheckInterval", 5}}, {.name = "other"});
  EXPECT_EQ(story.answer(kKeep), kNothing);
  story.device.launch({.name = "alpha"});
  story.Story::run(1min);
  EXPECT_EQ(story.device.find(102)->nice_value, 0);
  EXPECT_EQ(story.status(), Dictionary{});
}

TEST(Release, PutsBackWhenInterrupted) {
  TwoHeld story;
  story.is_interrupted = [&story](int waits) {
    EXPECT_EQ(std::filesystem::exists(asideOf(story)), true);
    return waits == 2;
  };
  expectKept(story, kKeep, "err: vorlatchctl: interrupted\nexit 3\n");
}

TEST(Release, InterruptedBeforeTheDaemonLooked) {
  HeldStory story({{"CheckInterval", 5}}, {.name = "other"});
  story.is_interrupted = [](int) { return true; };
  expectKept(story, kKeep, "err: vorlatchctl: interrupted\nexit 3\n");
}

// In their place stand the same preferences, switched off, or nothing.
TEST(Release, PutsBackWhatAKilledRunSetAside) {
  TwoHeld story;
  story.setAside();
  story.writePreferences(kSwitchedOff);
  expectKept(story, kKeep, kBoth, story.before);
  story.expectHandedBack();
  story.holdBoth();
  story.setAside();
  expectKept(story, kKeep, kBoth, story.before);
}

// Of the preferences set aside, only the switch goes into others that stand in their place.
TEST(Release, PutsNothingBackOverALaterEdit) {
  TwoHeld story;
  story.setAside();
  story.writeTargets({{"gamma", Dictionary{{"NiceValue", 1}}}});
  const std::string edited = readAll(story.preferencesFile());
  expectKept(story, kKeep, kBoth, edited);
  story.holdBoth();
  story.setAside();
  story.writePreferences(
      {{"Enabled", false}, {"AppConfigs", Dictionary{{"gamma", Dictionary{{"NiceValue", 1}}}}}});
  expectKept(story, kKeep, kBoth, edited);
}

TEST(Release, RefusesWhatItCannotRead) {
  TwoHeld story;
  EXPECT_EQ(story.run({"release", "--timeout", "0"}).status, 2);
  EXPECT_EQ(readAll(story.preferencesFile()), story.before);
  writeAll(story.preferencesFile(), "no property list");
  expectKept(story, "release", kNoPreferences);
  expectKept(story, kKeep, kNoPreferences);
}

}  // namespace
}  // namespace vorlatch::tests
