#include "fuzz/support/system_under_test.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "cli/arguments.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/status_file.h"
#include "config/target_settings.h"
#include "control/failure.h"
#include "control/preferences_edit.h"
#include "fuzz/support/output_checks.h"
#include "log/log_file.h"
#include "platform/property_list.h"
#include "proc/process_lookup.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;

constexpr std::uint64_t kSecondNs = 1'000'000'000;
constexpr std::uint64_t kPatrolNs = 1800 * kSecondNs;

// The file to which an interrupted release moves the preferences.
const std::string kSetAsideFileName = std::string(kPreferencesFileName) + ".released";

bool printsJson(const Words& words) {
  if (!holdsPrefix(words, "--json") || commandOf(words) == "__complete") return false;
  try {
    return cli::parseArguments(words).wants_json;
  } catch (const control::Failure&) {
    return false;
  }
}

// Whether the command may change the preferences.
bool isEdit(const Words& words) {
  static const Words edits = tests::wordsOf("set unset remove enable disable preset release");
  return std::find(edits.begin(), edits.end(), commandOf(words)) != edits.end();
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

std::map<std::string, std::string> SystemUnderTest::files() const {
  std::map<std::string, std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    const std::string name = entry.path().filename();
    if (name == kStatusFileName || name == kLogFileName) continue;
    files.emplace(name, tests::readAll(entry.path()));
  }
  return files;
}

tests::Output SystemUnderTest::type(const Words& words) {
  auto before = files();
  const Dictionary preferences = readDictionary(preferencesFile());
  tests::Output output = run(words);
  EXPECT_TRUE(output.status >= 0 && output.status <= 3) << output.status;
  expectHarmless(output.out, columns > 0 || has_colour);
  expectHarmless(output.err, false);
  if (output.status <= 1 && printsJson(words)) expectJson(output.out);
  auto after = files();
  if (isEdit(words)) {
    EXPECT_GE(after.erase(kPreferencesFileName), before.erase(kPreferencesFileName))
        << "the preferences are gone";
    // Such a release puts the preferences back that an interrupted release set aside.
    const bool may_put_back = commandOf(words) == "release" &&
                              holdsPrefix(words, "--keep-preferences") &&
                              before.contains(kSetAsideFileName);
    if (may_put_back && !after.contains(kSetAsideFileName)) before.erase(kSetAsideFileName);
    if (!may_put_back && !holdsPrefix(words, "--replace-file")) {
      EXPECT_TRUE(control::isIdentical(withoutNamed(preferences, words),
                                       withoutNamed(readDictionary(preferencesFile()), words)))
          << tests::readAll(preferencesFile());
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
