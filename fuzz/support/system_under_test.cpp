#include "fuzz/support/system_under_test.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <sstream>
#include <utility>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "cli/arguments.h"
#include "config/default_preset.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"
#include "config/target_settings.h"
#include "control/access_key.h"
#include "control/failure.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"
#include "fuzz/support/scene.h"
#include "log/log_file.h"
#include "platform/property_list.h"
#include "proc/process_lookup.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;
using plist::Value;

constexpr std::uint64_t kSecondNs = 1'000'000'000;
constexpr std::uint64_t kPatrolNs = 1800 * kSecondNs;

// The file to which an interrupted release moves the preferences.
const std::string kSetAsideFileName = std::string(kPreferencesFileName) + ".released";
// What vorlatchctl keeps for undo, and profiles.
const std::string kKeptFiles = std::string(kPreferencesFileName) + ".undo.";
const std::string kProfileFiles = "com.zel.vorlatch.profile.";

// Control characters except for line ends, direction marks, and separators, embeddings and
// isolates.
Words harmfulCharacters() {
  const std::vector<std::pair<std::uint32_t, std::uint32_t>> ranges{
      {0x00, 0x09},     {0x0B, 0x1F},     {0x7F, 0x9F},    {0x61C, 0x61C},
      {0x200E, 0x200F}, {0x2028, 0x202E}, {0x2066, 0x2069}};
  Words characters;
  for (const auto& [first, last] : ranges) {
    for (std::uint32_t code_point = first; code_point <= last; ++code_point) {
      appendUtf8(characters.emplace_back(), code_point);
    }
  }
  return characters;
}

bool holds(const Words& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// Expects valid UTF-8 without control characters and without changes of text direction. `may_draw`
// also permits colours, and the cursor moves and erasures with which `status --watch` replaces a
// table.
void expectHarmless(std::string text, bool may_draw) {
  EXPECT_TRUE(isValidUtf8(text)) << testing::PrintToString(text);
  static const Words drawings =
      tests::wordsOf("[0m [1m [2m [31m [32m [33m [36m [2J [H [K [J [?7l [?7h");
  for (const std::string& drawing : drawings) {
    std::size_t at = 0;
    // Leaves a character behind, so that no drawing hides a command around it.
    while (may_draw && (at = text.find("\x1b" + drawing, at)) != text.npos) {
      text.replace(at, drawing.size() + 1, "~");
    }
  }
  static const Words harmful = harmfulCharacters();
  for (const std::string& character : harmful) {
    EXPECT_EQ(text.find(character), text.npos) << testing::PrintToString(text);
  }
}

// Whether the text is a sequence of JSON values and nothing else.
bool isJson(const std::string& text) {
  std::istringstream stream(text);
  nlohmann::json value;
  try {
    while (!(stream >> std::ws).eof()) stream >> value;
    return true;
  } catch (const nlohmann::json::exception&) {
    return false;
  }
}

// The word that names the command, or an empty string.
std::string commandOf(const Words& words) {
  const auto command = std::find_if(words.begin(), words.end(),
                                    [](const std::string& word) { return !word.starts_with('-'); });
  return command == words.end() ? std::string() : *command;
}

bool holdsPrefix(const Words& words, std::string_view prefix) {
  return std::any_of(words.begin(), words.end(),
                     [prefix](const std::string& word) { return word.starts_with(prefix); });
}

bool isAssignedIn(const Words& words, const std::string& key) {
  return std::any_of(words.begin(), words.end(), [&key](const std::string& word) {
    try {
      return control::splitAssignment(word).key == key;
    } catch (const control::Failure&) {
      return false;
    }
  });
}

// The preferences in the file, without everything that the command may change.
Dictionary unnamedIn(const Files::node_type& file, const Words& words) {
  Dictionary preferences;
  if (!file.empty()) preferences = dictionaryIn(file.mapped()).value_or(preferences);
  const std::string command = commandOf(words);
  if (holds({"enable", "disable", "release"}, command)) preferences.erase(keys::kEnabled);
  if (!holds({"set", "unset", "remove", "preset", "apply"}, command)) return preferences;
  static const Dictionary new_target{{keys::kJetsamPriority, -1}};  // beside what `set` names
  const auto place = preferences.try_emplace(keys::kAppConfigs, Dictionary{}).first;
  auto* const targets = place->second.as<Dictionary>();
  if (targets == nullptr) return preferences;
  for (auto& [name, target] : *targets) {
    auto* const settings = target.as<Dictionary>();
    if (settings == nullptr || !holds(words, name)) continue;
    std::erase_if(*settings, [&](const auto& setting) {
      return command == "set"     ? isAssignedIn(words, setting.first)
             : command == "unset" ? holds(words, setting.first)
             : command == "apply" ? setting.first == keys::kApplyAgain
                                  : false;
    });
  }
  std::erase_if(*targets, [&](const auto& entry) {
    const auto& [name, target] = entry;
    if (command == "preset") return appConfigs(defaultPreset()).contains(name);
    const bool may_be_new =
        command == "set" && (target == Value(Dictionary{}) || target == Value(new_target));
    return holds(words, name) && (command == "remove" || may_be_new);
  });
  return preferences;
}

bool wantsJson(const Words& words) {
  try {
    cli::ArgumentParser parser;
    for (const std::string& word : words) parser.take(word);
    static_cast<void>(parser.finish());
    return parser.wantsJson();
  } catch (const control::Failure&) {
    return false;
  }
}

}  // namespace

const Words& preferencesWords() {
  static const Words& words = *[] {
    auto* all =
        new Words(tests::wordsOf("Enabled AppConfigs LogSizeLimit backboardd SpringBoard WeChat "
                                 "com.tencent.xin vorlatchd kbd "
                                 "-1 0 1 210 99999999999 true %s%n%d 视图 com.tencent. e\xcc\x81 "
                                 "\xe2\x80\xae\xc2\x85\xd8\x9c\xe2\x80\xac"));
    for (const char* word : {"", " +7x", "a\nb", "\t\x1b[2J"}) all->emplace_back(word);
    for (const SettingKey& row : kSettingKeys) all->emplace_back(row.key);
    return all;
  }();
  return words;
}

const Dictionary& soundPreferences() {
  static const Dictionary& preferences = *new Dictionary{
      {"Enabled", true},
      {"AppConfigs",
       Dictionary{
           {"backboardd",
            Dictionary{{"NiceValue", -20}, {"JetsamPriority", 210}, {"CheckInterval", 1}}},
           {"SpringBoard", Dictionary{{"StripManaged", true}}},
           {"com.tencent.xin", Dictionary{{"MemLimitActive", 1500}, {"MemLimitInactive", 300}}},
           {"kbd", Dictionary{{"NiceValue", -18}}}}}};
  return preferences;
}

SystemUnderTest::SystemUnderTest() {
  device.is_tracing = false;
  wechat_ = installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}});
  prepare();
  putPreferences("");
  start();
  EXPECT_TRUE(std::filesystem::exists(logFile())) << "the daemon works in another root";
  at_first_ = doWithSoundFile();
}

void SystemUnderTest::feed(const std::function<void()>& story) {
  prepare();
  keys_of_story_.clear();
  for (const auto& [key, settings] : appConfigs(soundPreferences())) keys_of_story_.insert(key);
  story();
  device.clearScripts();
  EXPECT_EQ(doWithSoundFile(), at_first_);
}

void SystemUnderTest::prepare() {
  std::vector<std::int32_t> pids;
  for (const simulated::Process& process : device.processes()) pids.push_back(process.pid);
  for (const std::int32_t pid : pids) device.exit(pid);
  device.jetsam_table = {};
  device.launch({.name = "vorlatchd",
                 .executable_path = rootPath("/usr/libexec/vorlatchd"),
                 .pid = getpid()});
  device.launch(
      {.name = "vorlatchd", .executable_path = rootPath("/usr/libexec/vorlatchd"), .pid = 100'000});
  device.launch({.name = "backboardd", .pid = 100'001});
  device.launch({.name = "SpringBoard", .pid = 100'002, .nice_value = 5});
  device.launch({.name = "WeChat", .executable_path = wechat_, .pid = 100'003});
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    std::filesystem::remove_all(entry.path());
  }
  openLog();
}

void SystemUnderTest::letGo() const {
  putPreferences("");
  postAndRun();
}

tests::Lines SystemUnderTest::doWithSoundFile() {
  letGo();
  prepare();
  writePreferences(soundPreferences());
  device.is_tracing = true;
  device.takeTrace();
  post();
  Story::run(1200ms);
  device.is_tracing = false;
  tests::Lines doings =
      rereadLog() + takeCalls() + tests::Lines{platform::writeXmlPropertyList(status())};
  letGo();
  device.scheduler.runUntil(nextPatrolNs());
  return doings;
}

std::uint64_t SystemUnderTest::nextPatrolNs() const {
  return (device.scheduler.nowNs() / kPatrolNs + 1) * kPatrolNs;
}

void SystemUnderTest::sleepUntilPatrol() const {
  Story::run(3s);
  device.scheduler.spend(nextPatrolNs() - kSecondNs - device.scheduler.nowNs());
  Story::run(3s);
}

void SystemUnderTest::putPreferences(std::string_view bytes) const {
  tests::writeAll(preferencesFile(), bytes);
}

Files SystemUnderTest::files() const {
  Files files;
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    const std::string name = entry.path().filename();
    const bool is_kept = name.starts_with(kKeptFiles) || name.starts_with(kProfileFiles);
    const bool is_own =
        name == kStatusFileName || name == kLogFileName || name == control::kAccessKeyFileName;
    if (is_own || is_kept) continue;
    files.emplace(name, tests::readAll(entry.path()));
  }
  return files;
}

tests::Output SystemUnderTest::type(const Words& words) {
  auto before = files();
  tests::Output output = run(words);
  EXPECT_TRUE(output.status >= 0 && output.status <= 3) << output.status;
  expectHarmless(output.out, columns > 0 || has_colour);
  expectHarmless(output.err, false);
  // Parses the words only if necessary, because that takes longer than most commands.
  static const Words texts_for_people = tests::wordsOf("__complete help --help -h --version");
  const bool is_for_people = std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return holds(texts_for_people, word);
  });
  if (output.status <= 1 && holdsPrefix(words, "--json") && !is_for_people) {
    EXPECT_TRUE(isJson(output.out) || !wantsJson(words)) << testing::PrintToString(output.out);
  }
  auto after = files();
  static const Words edits =
      tests::wordsOf("set unset remove enable disable preset release apply undo import profile");
  if (holds(edits, commandOf(words))) {
    const auto old_preferences = before.extract(kPreferencesFileName);
    const auto new_preferences = after.extract(kPreferencesFileName);
    EXPECT_TRUE(old_preferences.empty() || !new_preferences.empty()) << "the preferences are gone";
    // Such a release puts the preferences back that an interrupted release set aside.
    const bool may_put_back = commandOf(words) == "release" &&
                              holdsPrefix(words, "--keep-preferences") &&
                              before.contains(kSetAsideFileName);
    if (may_put_back && !after.contains(kSetAsideFileName)) before.erase(kSetAsideFileName);
    static const Words replacing = tests::wordsOf("undo import profile");
    const bool may_replace =
        holdsPrefix(words, "--replace-file") || holds(replacing, commandOf(words));
    if (!may_put_back && !may_replace) {
      EXPECT_TRUE(control::isIdentical(unnamedIn(old_preferences, words),
                                       unnamedIn(new_preferences, words)))
          << (new_preferences.empty() ? "" : new_preferences.mapped());
    }
  }
  EXPECT_EQ(after, before);
  return output;
}

void SystemUnderTest::expectWholeLog() {
  const std::string log = tests::readAll(logFile());
  EXPECT_TRUE(log.empty() || log.ends_with('\n')) << "an unfinished line";
  const TargetDictionaries targets = appConfigs(readDictionary(preferencesFile()));
  const bool breaks_lines = std::any_of(targets.begin(), targets.end(), [](const auto& target) {
    return target.first.find('\n') != std::string::npos;
  });
  if (!breaks_lines) rereadLog();
}

void SystemUnderTest::expectTrueStatus() {
  const Dictionary preferences = readDictionary(preferencesFile());
  const RunningProcessMap running = getRunningProcessMap();
  const TargetDictionaries targets = appConfigs(preferences);
  for (const auto& [key, settings] : targets) keys_of_story_.insert(key);
  std::map<std::int32_t, int> targets_of;
  for (const std::string& key : keys_of_story_) ++targets_of[pidIn(running, key)];

  Dictionary expected;
  Dictionary found = status();
  for (const auto& [key, settings] : targets) {
    const std::int32_t pid = pidIn(running, key);
    if (pid == 0 || !isEnabled(preferences)) continue;
    const Dictionary entry{{"pid", pid},
                           {"n", device.find(pid)->nice_value},
                           {"p", device.jetsam(pid).effective_band}};
    expected.emplace(key, entry);
    // If two targets match one process, the target applied or handed back last determines its
    // values.
    if (targets_of[pid] > 1 && found.contains(key)) found.insert_or_assign(key, entry);
  }
  EXPECT_TRUE(found == expected) << tests::readAll(statusFile()) << "expected:\n"
                                 << platform::writeXmlPropertyList(expected);
}

}  // namespace vorlatch::fuzz
