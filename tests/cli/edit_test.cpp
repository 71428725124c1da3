// The commands that change the preferences: what is written, what is said, also in JSON, and who is
// told.
#include <cstdint>
#include <filesystem>
#include <limits>

#include <gtest/gtest.h>

#include "config/default_preset.h"
#include "control/failure.h"
#include "control/preferences_edit.h"
#include "tests/cli/edit_story.h"
#include "tests/cli/held_story.h"

namespace vorlatch::tests {
namespace {

Dictionary enabledWith(const Dictionary& targets) {
  return {{"Enabled", true}, {"AppConfigs", targets}};
}

const Dictionary kAlpha{{"NiceValue", 5}, {"Remark", "x"}, {"Own", Array{1, 2}}};
const Dictionary kBeta{{"CheckInterval", 30}};
const Dictionary kTargets{{"alpha", kAlpha}, {"beta", kBeta}, {"empty", Dictionary{}}, {"odd", 7}};

// A key that only this file knows is kept or goes as any other, and of two values the last counts.
TEST(SetAndUnset, ChangeWhatIsNamedAndNothingElse) {
  struct Case {
    std::string line;
    std::string target;
    Lines changes;
    Dictionary settings;  // the target's, afterwards
  };
  const std::vector<Case> cases{
      {"set alpha NiceValue=-20",
       "alpha",
       {"NiceValue: 5 -> -20"},
       {{"NiceValue", -20}, {"Remark", "x"}, {"Own", Array{1, 2}}}},
      {"set empty JetsamPriority=highest MemLimitActive=2147483647 MemLimitInactive=-1 "
       "StripManaged=yes CheckInterval=0",
       "empty",
       {"CheckInterval: (none) -> 0", "JetsamPriority: (none) -> 210",
        "MemLimitActive: (none) -> 2147483647", "MemLimitInactive: (none) -> -1",
        "StripManaged: (none) -> true"},
       dictionary(R"({"JetsamPriority": 210, "MemLimitActive": 2147483647, "MemLimitInactive": -1,
                      "StripManaged": true, "CheckInterval": 0})")},
      {"set com.tencent.xin Remark=微信=x JetsamPriority=999 StripManaged=off",
       "com.tencent.xin",
       {"JetsamPriority: (none) -> 999", "Remark: (none) -> 微信=x",
        "StripManaged: (none) -> false"},
       {{"Remark", "微信=x"}, {"JetsamPriority", 999}, {"StripManaged", false}}},
      {"set beta CheckInterval=1 Remark= CheckInterval=60",
       "beta",
       {"CheckInterval: 30 -> 60", "Remark: (none) -> "},
       {{"CheckInterval", 60}, {"Remark", ""}}},
      {"unset alpha Own NiceValue StripManaged",
       "alpha",
       {"NiceValue: 5 -> (none)", "Own: 2 items -> (none)"},
       {{"Remark", "x"}}},
      {"unset beta CheckInterval", "beta", {"CheckInterval: 30 -> (none)"}, {}}};
  EditStory story;
  story.device.launch({.name = "com.tencent.xin"});  // nothing warns of a new target that runs
  for (const auto& [line, target, changes, settings] : cases) {
    std::string said;
    for (const std::string& change : changes) {
      said.append("AppConfigs / ").append(target).append(" / ").append(change).append("\n");
    }
    Dictionary after = kTargets;
    after.insert_or_assign(target, settings);
    story.expectEdit(wordsOf(line), enabledWith(kTargets), said, enabledWith(after));
  }
}

TEST(Remove, TakesOutWhatIsNamedAndNothingElse) {
  EditStory story;
  story.expectEdit({"remove", "odd", "beta", "empty", "odd"}, enabledWith(kTargets),
                   R"(AppConfigs / beta / CheckInterval: 30 -> (none)
AppConfigs / empty: 0 entries -> (none)
AppConfigs / odd: 7 -> (none)
)",
                   enabledWith({{"alpha", kAlpha}}));
}

// A number that reads as true becomes a truth value.
TEST(Enable, SwitchesOnAndDisableOff) {
  EditStory story;
  const Dictionary on{{"Enabled", true}};
  const Dictionary off{{"Enabled", false}};
  story.expectEdit({"disable"}, on, "Enabled: true -> false\n", off);
  story.expectEdit({"enable"}, {}, "Enabled: (none) -> true\n", on);
  story.expectEdit({"enable"}, off, "Enabled: false -> true\n", on);
  story.expectEdit({"enable"}, {{"Enabled", 1}}, "Enabled: 1 -> true\n", on);
}

constexpr const char* kNoDaemon =
    "err: vorlatchctl: the daemon does not run, so nothing is applied; it applies what the "
    "preferences say when it is started\nexit 3\n";

TEST(Apply, TellsTheDaemon) {
  EditStory story;
  EXPECT_EQ(story.edit("apply"), kApplied);
  EXPECT_EQ(story.edit("apply --json"), pretty(R"({"applied": true})") + kApplied);
  EXPECT_EQ(story.edit("apply alpha"),
            "err: vorlatchctl: without --again, apply takes no target\nexit 2\n");
  story.device.exit(story.daemon);
  EXPECT_EQ(story.edit("apply"), std::string(kNoDaemon) + "posts 1\n");
}

// The daemon passes over a target that nobody changed, but not over one with a new count.
TEST(ApplyAgain, HoldsAnUnchangedTargetAnew) {
  HeldStory story({{"NiceValue", -7}});
  const auto nice_after = [&](const std::string& line, const std::string& answer) {
    story.device.find(101)->nice_value = 3;
    EXPECT_EQ(story.answer(line), answer);
    story.Story::run(1s);
    return story.device.find(101)->nice_value;
  };
  const std::string count = "AppConfigs / alpha / ApplyAgain: ";
  EXPECT_EQ(nice_after("apply", ""), 3);
  EXPECT_EQ(nice_after("apply --again alpha", count + "(none) -> 1\n"), -7);
  EXPECT_EQ(nice_after("apply --again alpha alpha", count + "1 -> 2\n"), -7);
  story.writeTargets({{"alpha", Dictionary{{"NiceValue", -7}, {"ApplyAgain", INT64_MAX}}}});
  story.postAndRun();
  EXPECT_EQ(nice_after("apply alpha --again --json", pretty(R"({"changes": [
      {"path": ["AppConfigs", "alpha", "ApplyAgain"], "before": 9223372036854775807, "after": 1}],
      "written": true, "applied": true})")),
            -7);
  EXPECT_TRUE(
      story.answer("show alpha")
          .starts_with("KEY         VALUE  MEANING\n"
                       "ApplyAgain      1  how often vorlatchctl apply --again was used\n"));
  EXPECT_TRUE(story.answer("check").starts_with("{preferences}: all in order\n"));
}

TEST(ApplyAgain, RefusesWhatItCannotApply) {
  EditStory story;
  story.writeTargets({{"alpha", Dictionary{}}, {"odd", 7}});
  const std::string err = "err: vorlatchctl: ";
  EXPECT_EQ(story.edit("apply --again"),
            err + "TARGET is missing; vorlatchctl apply --help says more\nexit 2\n");
  EXPECT_EQ(story.edit("apply --again alpha alhpa"),
            err + "no target alhpa is configured; did you mean alpha?\nexit 2\n");
  EXPECT_EQ(story.edit("apply --again odd"),
            err +
                "odd is an integer and no dictionary; vorlatchctl check says more, and nothing is "
                "changed\nexit 3\n");
  story.device.exit(story.daemon);
  EXPECT_EQ(story.edit("apply --again alpha"), kNoDaemon);
}

// An edit that switches the daemon off needs no hint, and one in switched-off preferences has
// another.
TEST(Edit, SaysWhenTheDaemonDoesNotRun) {
  EditStory story;
  story.device.exit(story.daemon);
  const std::string later = "the daemon does not run; it applies this when it is started\n";
  const auto posted = [&](const Dictionary& after) { return kApplied + writes(after); };
  story.writePreferences({});
  EXPECT_EQ(story.edit("enable"),
            "Enabled: (none) -> true\n" + later + posted({{"Enabled", true}}));
  EXPECT_EQ(story.edit("enable"), "nothing to change\n");
  EXPECT_EQ(story.edit("disable --dry-run"), "Enabled: true -> false\nnothing was written\n");
  EXPECT_EQ(story.edit("disable --no-apply"),
            "Enabled: true -> false\n" + writes({{"Enabled", false}}));
  EXPECT_EQ(story.answer("preset").find(later), std::string::npos);
  EXPECT_TRUE(story.answer("preset --replace").ends_with(kOffHint));
  EXPECT_EQ(story.answer("enable --json"), pretty(R"({"changes": [
      {"path": ["Enabled"], "before": false, "after": true}], "written": true, "applied": false})"));
}

TEST(Edit, LeavesAloneWhatIsAlreadySo) {
  EditStory story;
  Dictionary preferences = defaultPreset();
  preferences.at("AppConfigs").as<Dictionary>()->insert_or_assign("odd", 7);
  story.writePreferences(preferences);
  for (const char* line : {"set kbd NiceValue=-18 Remark=键盘 JetsamPriority=-1",
                           "unset kbd StripManaged", "enable", "preset", "preset --replace"}) {
    EXPECT_EQ(story.edit(line), "nothing to change\n") << line;
  }
  EXPECT_EQ(story.edit("enable --dry-run"), "nothing to change\nnothing was written\n");
}

TEST(Edit, MakesAMissingFile) {
  EditStory story;
  story.device.launch({.name = "alpha"});
  const std::string change =
      "AppConfigs / alpha / JetsamPriority: (none) -> -1\n"
      "AppConfigs / alpha / NiceValue: (none) -> 1\n";
  EXPECT_EQ(story.edit("set alpha NiceValue=1 --dry-run"),
            change + "nothing was written\n" + kOffHint);
  const Dictionary after =
      dictionary(R"({"AppConfigs": {"alpha": {"JetsamPriority": -1, "NiceValue": 1}}})");
  EXPECT_EQ(story.edit("set alpha NiceValue=1"), change + kOffHint + kApplied + writes(after));
  std::filesystem::remove(story.preferencesFile());
  EXPECT_TRUE(story.edit("preset --replace-file").ends_with(writes(defaultPreset())));
}

TEST(Edit, TakesSquareBracketsAsTheyAre) {
  EditStory story;
  story.writeTargets({{"[a,b]", Dictionary{}}, {"a", Dictionary{}}});
  EXPECT_EQ(story.answer("set [a,b] Remark=[x]"), "AppConfigs / [a,b] / Remark: (none) -> [x]\n");
  EXPECT_EQ(story.answer("set a [Remark=1]"),
            "err: vorlatchctl: there is no key [Remark; did you mean Remark?\nexit 2\n");
  EXPECT_EQ(story.answer("remove [a,b]"), "AppConfigs / [a,b] / Remark: [x] -> (none)\n");
}

// What another editor writes between the reading and the writing is not lost, lock or no lock.
TEST(Edit, BeginsAgainWhenTheFileChanges) {
  EditStory story;
  int calls = 0;
  const auto edit_while_it_changes = [&](int times) {
    calls = 0;
    return control::editPreferences(
        [&](Dictionary& preferences) {
          if (++calls <= times) story.writePreferences({{"Theirs", calls}});
          preferences.insert_or_assign("Added", calls);
        },
        true);
  };

  const control::Edit edit = edit_while_it_changes(1);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(xml(edit.before), xml({{"Theirs", 1}}));
  EXPECT_EQ(story.bytes(), xml({{"Added", 2}, {"Theirs", 1}}));

  constexpr int kAllTheTime = std::numeric_limits<int>::max();
  try {
    edit_while_it_changes(kAllTheTime);
    ADD_FAILURE() << "it was written";
  } catch (const control::Failure& failure) {
    EXPECT_EQ(failure.status, 3);
    EXPECT_EQ(failure.message,
              story.preferencesFile() +
                  " is changed by another program all the time; nothing is written");
  }
  EXPECT_EQ(story.bytes(), xml({{"Theirs", calls}}));
}

// The preset switched off, without one of its targets, with one changed and one added.
Dictionary edited(const std::string& missing, const std::string& changed) {
  Dictionary preferences = defaultPreset();
  preferences.insert_or_assign("Enabled", false);
  preferences.insert_or_assign("LogSizeLimit", 1000);
  Dictionary& targets = *preferences.at("AppConfigs").as<Dictionary>();
  targets.erase(missing);
  if (!changed.empty()) targets.insert_or_assign(changed, Dictionary{{"NiceValue", 3}});
  targets.insert_or_assign("alpha", Dictionary{{"NiceValue", 1}});
  return preferences;
}

constexpr const char* kKeyboardAdded = R"(AppConfigs / kbd / CheckInterval: (none) -> 0
AppConfigs / kbd / JetsamPriority: (none) -> -1
AppConfigs / kbd / MemLimitActive: (none) -> 0
AppConfigs / kbd / MemLimitInactive: (none) -> 0
AppConfigs / kbd / NiceValue: (none) -> -18
AppConfigs / kbd / Remark: (none) -> 键盘
)";
const std::string kDasdReplaced = R"(AppConfigs / dasd / NiceValue: 3 -> 1
AppConfigs / dasd / CheckInterval: (none) -> 0
AppConfigs / dasd / JetsamPriority: (none) -> -1
AppConfigs / dasd / MemLimitActive: (none) -> 0
AppConfigs / dasd / MemLimitInactive: (none) -> 0
AppConfigs / dasd / Remark: (none) -> 后台刷新
)";

TEST(Preset, AddsOrReplaces) {
  const std::string switched_on = "Enabled: false -> true\nLogSizeLimit: 1000 -> (none)\n";
  const std::string removed = "AppConfigs / alpha / NiceValue: 1 -> (none)\n";
  struct Case {
    std::string line;
    std::string changes;
    Dictionary after;
    std::string hint;
  };
  EditStory story;
  for (const auto& [line, changes, after, hint] : std::vector<Case>{
           {"preset", kKeyboardAdded, edited("", "dasd"), kOffHint},
           {"preset --replace", kDasdReplaced + kKeyboardAdded, edited("", ""), kOffHint},
           {"preset --replace-file", removed + kDasdReplaced + kKeyboardAdded + switched_on,
            defaultPreset(), ""}}) {
    story.expectEdit(wordsOf(line), edited("kbd", "dasd"), changes, after, hint);
    EXPECT_EQ(story.edit(line), "nothing to change\n" + hint);
  }
}

TEST(EditJson, SaysWhatIsChangedWrittenAndApplied) {
  EditStory story;
  const auto json = [](const std::string& written, const std::string& applied) {
    return pretty(R"({"changes": [
      {"path": ["AppConfigs", "alpha", "NiceValue"], "before": 1, "after": -5},
      {"path": ["AppConfigs", "alpha", "StripManaged"], "before": null, "after": true}
    ], "written": )" +
                  written + ", \"applied\": " + applied + ", \"warnings\": []}");
  };
  const Dictionary before = dictionary(R"({"AppConfigs": {"alpha": {"NiceValue": 1}}})");
  const std::string after =
      writes(dictionary(R"({"AppConfigs": {"alpha": {"NiceValue": -5, "StripManaged": true}}})"));
  const std::string line = "set alpha NiceValue=-5 StripManaged=1 --json";
  story.writePreferences(before);
  EXPECT_EQ(story.edit(line + " --dry-run"), json("false", "false"));
  EXPECT_EQ(story.edit(line + " --no-apply"), json("true", "false") + after);
  EXPECT_EQ(story.edit(line), pretty(R"({"changes": [], "written": false, "applied": false,
      "warnings": []})"));
  story.writePreferences(before);
  EXPECT_EQ(story.edit(line), json("true", "true") + kApplied + after);

  story.writePreferences(dictionary(R"({"AppConfigs": {"odd": 7, "空": {}}})"));
  EXPECT_EQ(story.answer("--json remove odd 空"), pretty(R"({"changes": [
      {"path": ["AppConfigs", "odd"], "before": 7, "after": null},
      {"path": ["AppConfigs", "空"], "before": {}, "after": null}],
      "written": true, "applied": true})"));
}

}  // namespace
}  // namespace vorlatch::tests
