// Steps that change the preferences.
#include <limits>

#include "platform/property_list.h"
#include "tests/base/describe.h"
#include "tests/random/steps.h"
#include "tests/support/draft.h"

namespace vorlatch::tests::random {
namespace {

using plist::Dictionary;
using plist::Value;
using test::describe;

// Process names, bundle identifiers, both at once, and neither.
const std::vector<std::string> kTargets = {"alpha",
                                           "beta",
                                           "gamma",
                                           "Chat",
                                           "com.example.chat",
                                           "com.example.chat.share",
                                           "com.example.mail",
                                           "SpringBoard",
                                           "launchd",
                                           "nobody",
                                           "",
                                           "a%s b%n [c]",
                                           "a daemon of quite a long name, cut short",
                                           "a daemon of quite a long name, ",
                                           "守护进程"};

const std::vector<std::string> kSettings = {"NiceValue",        "JetsamPriority", "MemLimitActive",
                                            "MemLimitInactive", "CheckInterval",  "StripManaged",
                                            "Remark",           "Unknown"};

// A value that is not a plain number, or is read as a different number than it looks.
Value oddValue(Dice& dice) {
  const std::vector<Value> odd = {"",
                                  "12",
                                  " -7x",
                                  "+30",
                                  "abc",
                                  "yes",
                                  "No",
                                  "-0t",
                                  "99999999999999999999",
                                  3.9,
                                  -0.5,
                                  160.0,
                                  1e300,
                                  -1e300,
                                  std::int64_t{1} << 31,
                                  std::numeric_limits<std::int64_t>::min(),
                                  Value(std::numeric_limits<std::uint64_t>::max()),
                                  true,
                                  false,
                                  plist::Date{86400},
                                  plist::Data{"5"},
                                  plist::Array{1, 2},
                                  Dictionary{{"NiceValue", 5}},
                                  Dictionary{}};
  return dice.of(odd);
}

Value settingValue(Dice& dice, const std::string& setting, Pace pace) {
  const std::vector<int> nice = {-20, -19, -7, -1, 0, 1, 5, 20, 35, -40};
  const std::vector<int> bands = {-1, 0,   -2,  1,   5,   15,  21,  30,
                                  40, 100, 160, 180, 210, 211, 999, 2100};
  const std::vector<int> limits = {0, 0, -1, 1, 50, 300, 1450, 2048};
  const std::vector<int> quick = {0, -5, 5, 10, 30, 60};
  const std::vector<int> slow = {0, -5, 300, 600, 1800, 3600};
  const std::vector<Value> strips = {true, false, 1, 0, "YES", "no", 2.0};
  if (dice.percent(15)) return oddValue(dice);
  if (setting == "NiceValue") return dice.of(nice);
  if (setting == "JetsamPriority") return dice.of(bands);
  if (setting.starts_with("MemLimit")) return dice.of(limits);
  if (setting == "CheckInterval") return dice.of(pace == Pace::Quick ? quick : slow);
  if (setting == "StripManaged") return dice.of(strips);
  return "remark " + std::to_string(dice.below(3));
}

Dictionary anySettings(Dice& dice, Pace pace) {
  Dictionary settings;
  for (const std::string& setting : kSettings) {
    if (dice.percent(45)) settings.emplace(setting, settingValue(dice, setting, pace));
  }
  return settings;
}

// An edit of the draft, after which the preferences file is valid.
Step edit(Dice& dice, const std::string& text, const std::function<void(Dictionary&)>& change) {
  const bool as_binary = dice.percent(30);
  return {(as_binary ? "edit, binary: " : "edit: ") + text, [as_binary, change](Stage& stage) {
            change(stage.draft);
            stage.writeDraft(as_binary);
          }};
}

Step setSetting(Dice& dice, Pace pace) {
  const std::string key = dice.of(kTargets);
  const std::string setting = dice.of(kSettings);
  const Value value = settingValue(dice, setting, pace);
  return edit(dice, "\"" + key + "\" " + setting + " = " + describe(value), [=](Dictionary& draft) {
    childOf(targetsIn(draft), key).insert_or_assign(setting, value);
  });
}

Step removeSetting(Dice& dice) {
  const std::string key = dice.of(kTargets);
  const std::string setting = dice.of(kSettings);
  return edit(dice, "\"" + key + "\" without " + setting, [=](Dictionary& draft) {
    const auto target = targetsIn(draft).find(key);
    if (target == targetsIn(draft).end()) return;
    if (auto* settings = target->second.as<Dictionary>()) settings->erase(setting);
  });
}

Step setTarget(Dice& dice, const std::string& key, const Value& target) {
  return edit(dice, "\"" + key + "\" = " + describe(target),
              [=](Dictionary& draft) { targetsIn(draft).insert_or_assign(key, target); });
}

Step setAnyTarget(Dice& dice, Pace pace) {
  const std::string key = dice.of(kTargets);
  return setTarget(dice, key, dice.percent(8) ? oddValue(dice) : Value(anySettings(dice, pace)));
}

Step switchOn(Dice& dice) {
  return edit(dice, "Enabled = true",
              [](Dictionary& draft) { draft.insert_or_assign("Enabled", true); });
}

Step removeTargets(Dice& dice) {
  const std::string first = dice.of(kTargets);
  const std::string second = dice.of(kTargets);
  return edit(dice, "without \"" + first + "\" and \"" + second + "\"", [=](Dictionary& draft) {
    targetsIn(draft).erase(first);
    targetsIn(draft).erase(second);
  });
}

Step renameTarget(Dice& dice) {
  const std::string from = dice.of(kTargets);
  const std::string to = dice.of(kTargets);
  return edit(dice, "\"" + from + "\" renamed to \"" + to + "\"", [=](Dictionary& draft) {
    auto target = targetsIn(draft).extract(from);
    if (target.empty()) return;
    targetsIn(draft).insert_or_assign(to, std::move(target.mapped()));
  });
}

Step setTopLevel(Dice& dice) {
  const std::vector<std::string> keys = {"Enabled",      "Enabled",    "Enabled", "LogSizeLimit",
                                         "LogSizeLimit", "AppConfigs", "Unknown"};
  const std::vector<Value> switches = {true, true, true, false, false, 1, 0, "YES", "no", 0.0};
  const std::vector<Value> sizes = {1, 500, 3000, 10000, 2097152, 0, -5, "2000", 1500.5};
  const std::string key = dice.of(keys);
  if (dice.percent(10)) {
    return edit(dice, "without " + key, [=](Dictionary& draft) { draft.erase(key); });
  }
  Value value = oddValue(dice);
  if (key == "AppConfigs" && dice.percent(50)) value = Dictionary{};
  if (key == "Enabled" && dice.percent(85)) value = dice.of(switches);
  if (key == "LogSizeLimit" && dice.percent(85)) value = dice.of(sizes);
  return edit(dice, key + " = " + describe(value),
              [=](Dictionary& draft) { draft.insert_or_assign(key, value); });
}

// A log larger than its limit is cleared; a log of exactly the limit is kept.
Step limitTheLog(Dice& dice) {
  const int more = static_cast<int>(dice.below(3)) - 1;
  return {"edit: LogSizeLimit is the log's size + " + std::to_string(more) + ", and post",
          [more](Stage& stage) {
            const std::int64_t size = static_cast<std::int64_t>(stage.logBytes()) + more;
            stage.draft.insert_or_assign("LogSizeLimit", size);
            stage.writeDraft(false);
            stage.post();
          }};
}

const std::vector<Step> kBreaks = {
    {"the preferences are removed", [](Stage& stage) { stage.removePreferences(); }},
    {"the preferences are emptied", [](Stage& stage) { stage.breakPreferences(""); }},
    {"the preferences are garbage",
     [](Stage& stage) { stage.breakPreferences("<plist><dict><key>Enabled</key>"); }},
    {"the preferences are a list without keys",
     [](Stage& stage) {
       stage.breakPreferences(platform::writeXmlPropertyList(plist::Array{stage.draft}));
     }},
    {"the preferences are cut short", [](Stage& stage) {
       const std::string whole = platform::writeXmlPropertyList(stage.draft);
       stage.breakPreferences(whole.substr(0, whole.size() / 2));
     }}};

}  // namespace

Step anyEdit(Dice& dice, Pace pace) {
  const std::size_t kind = dice.below(100);
  if (kind < 40) return setSetting(dice, pace);
  if (kind < 46) return removeSetting(dice);
  if (kind < 66) return setAnyTarget(dice, pace);
  if (kind < 74) return removeTargets(dice);
  if (kind < 80) return renameTarget(dice);
  if (kind < 89) return setTopLevel(dice);
  if (kind < 91) return limitTheLog(dice);
  if (kind < 95) return dice.of(kBreaks);
  return switchOn(dice);
}

std::vector<Step> firstPreferences(Dice& dice, Pace pace) {
  std::vector<Step> edits = {switchOn(dice)};
  for (const std::string& key : kTargets) {
    if (dice.percent(40)) edits.push_back(setTarget(dice, key, anySettings(dice, pace)));
  }
  return edits;
}

}  // namespace vorlatch::tests::random
