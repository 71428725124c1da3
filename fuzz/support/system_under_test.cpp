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
#include "fuzz/support/output_checks.h"
#include "log/log_file.h"
#include "platform/property_list.h"
#include "proc/process_lookup.h"
#include "tests/support/stamp.h"

namespace vorlatch::fuzz {
namespace {

using plist::Dictionary;

constexpr std::uint64_t kPatrolNs = 1'800'000'000'000;

// One target per kind of key and per stage of an application, with and without a watch timer.
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

bool holdsLineEnd(const Dictionary& preferences) {
  const TargetDictionaries targets = appConfigs(preferences);
  return std::any_of(targets.begin(), targets.end(), [](const auto& target) {
    return target.first.find('\n') != std::string::npos;
  });
}

// The path to which an interrupted release moves the preferences.
std::string setAsideFileName() {
  return std::string(kPreferencesFileName) + ".released";
}

// Whether the command restores the file that an interrupted release set aside.
bool mayPutBack(const Words& words) {
  return commandOf(words) == "release" &&
         std::any_of(words.begin(), words.end(), [](const std::string& word) {
           return word.starts_with("--keep-preferences");
         });
}

// Assigns the words, in order, to a command's arguments, and sets its flags.
void giveValues(const cli::Arguments& arguments, const Words& words) {
  auto word = words.begin();
  for (const cli::Argument& argument : arguments) {
    if (auto* const* flag = std::get_if<bool*>(&argument.value)) {
      if (std::find(words.begin(), words.end(), argument.name) != words.end()) {
        **flag = argument.flag_means;
      }
    } else if (word == words.end() || word->starts_with("--")) {
      continue;
    } else if (auto* const* text = std::get_if<std::string*>(&argument.value)) {
      **text = *word++;
    } else if (auto* const* all = std::get_if<cli::Words*>(&argument.value)) {
      (*all)->assign(word, words.end());
    }
  }
}

// Whether the command prints JSON.
bool printsJson(const Words& words) {
  const bool may_want_it = std::any_of(words.begin(), words.end(), [](const std::string& word) {
    return word.starts_with("--json");
  });
  if (!may_want_it || commandOf(words) == "__complete") return false;
  try {
    return cli::parseArguments(words).wants_json;
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

SystemUnderTest::SystemUnderTest() {
  device.is_tracing = false;
  wechat_ = installApp("WeChat.app", Dictionary{{"CFBundleIdentifier", "com.tencent.xin"}});
  prepareDevice();
  putPreferences("");
  start();
  EXPECT_TRUE(std::filesystem::exists(logFile())) << "the daemon works in another root";
  prepareFiles();
  at_first_ = doWithSoundFile();
  letGo();
  waitForNextPeriod();
}

void SystemUnderTest::feed(const std::function<void()>& story) {
  prepareDevice();
  prepareFiles();
  keys_of_story_.clear();
  for (const auto& [key, settings] : appConfigs(soundPreferences())) keys_of_story_.insert(key);
  story();
  device.clearScripts();
  letGo();
  prepareDevice();
  prepareFiles();
  const Doings now = doWithSoundFile();
  EXPECT_EQ(now.log, at_first_.log);
  EXPECT_EQ(now.calls, at_first_.calls);
  EXPECT_TRUE(now.status == at_first_.status) << "the status file differs";
  letGo();
  waitForNextPeriod();
}

void SystemUnderTest::prepareDevice() {
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
}

void SystemUnderTest::prepareFiles() const {
  for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
    std::filesystem::remove_all(entry.path());
  }
  openLog();
}

void SystemUnderTest::letGo() const {
  putPreferences("");
  postAndRun();
}

void SystemUnderTest::takeChargeOfHeld() const {
  Dictionary held;
  for (const auto& [key, entry] : status()) held.emplace(key, Dictionary{});
  writeTargets(held);
  postAndRun();
}

void SystemUnderTest::waitForNextPeriod() {
  const std::uint64_t now_ns = device.scheduler.nowNs();
  device.scheduler.runUntil((now_ns / kPatrolNs + 1) * kPatrolNs);
  begin_ns_ = device.scheduler.nowNs();
}

SystemUnderTest::Doings SystemUnderTest::doWithSoundFile() {
  putSoundPreferences();
  device.is_tracing = true;
  device.takeTrace();
  post();
  Story::run(1200ms);
  device.is_tracing = false;
  return {.log = rereadLog(), .calls = takeCalls(), .status = status()};
}

void SystemUnderTest::runTo(std::chrono::nanoseconds time) const {
  device.scheduler.runUntil(begin_ns_ + static_cast<std::uint64_t>(time.count()));
}

void SystemUnderTest::sleepTo(std::chrono::nanoseconds time) {
  const std::uint64_t then_ns = begin_ns_ + static_cast<std::uint64_t>(time.count());
  const std::uint64_t now_ns = device.scheduler.nowNs();
  if (then_ns > now_ns) device.scheduler.spend(then_ns - now_ns);
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
  const auto before = files();
  const Dictionary preferences = readDictionary(preferencesFile());
  tests::Output output = run(words);
  expectSound(output, printsJson(words));
  if (isEdit(commandOf(words))) {
    const bool may_put_back = mayPutBack(words) && before.contains(setAsideFileName());
    expectOnlyPreferencesChanged(before, may_put_back);
    if (!may_put_back) {
      expectOnlyNamedChanges(preferences, readDictionary(preferencesFile()), words);
    }
  } else {
    EXPECT_EQ(files(), before);
  }
  return output;
}

tests::Output SystemUnderTest::look(const Words& words, bool wants_json) {
  const auto before = files();
  tests::Output output = runCommand(words, wants_json);
  EXPECT_EQ(files(), before);
  return output;
}

tests::Output SystemUnderTest::edit(const Words& words, bool wants_json) {
  const auto before = files();
  tests::Output output = runCommand(words, wants_json);
  expectOnlyPreferencesChanged(before, false);
  return output;
}

tests::Output SystemUnderTest::runCommand(const Words& words, bool wants_json) {
  tests::Output output = run([&](cli::Terminal& terminal) -> int {
    const cli::Session session{.terminal = terminal, .wants_json = wants_json};
    try {
      cli::Arguments arguments;
      const cli::Run work = cli::findCommand(words.front())->prepare(arguments);
      giveValues(arguments, {words.begin() + 1, words.end()});
      return work(session);
    } catch (const control::Failure& failure) {
      cli::printError(session, failure.message);
      return failure.status;
    }
  });
  expectSound(output, wants_json);
  return output;
}

void SystemUnderTest::expectSound(const tests::Output& output, bool is_json) const {
  EXPECT_TRUE(output.status >= 0 && output.status <= 3) << output.status;
  expectHarmless(output.out, columns > 0 || has_colour);
  expectHarmless(output.err, false);
  if (output.status <= 1 && is_json) expectJson(output.out);
}

void SystemUnderTest::expectOnlyPreferencesChanged(std::map<std::string, std::string> before,
                                                   bool may_put_back) const {
  std::map<std::string, std::string> after = files();
  const std::size_t had_preferences = before.erase(kPreferencesFileName);
  EXPECT_GE(after.erase(kPreferencesFileName), had_preferences) << "the preferences are gone";
  if (may_put_back && !after.contains(setAsideFileName())) before.erase(setAsideFileName());
  EXPECT_EQ(after, before);
}

void SystemUnderTest::putSoundPreferences() const {
  writePreferences(soundPreferences());
}

void SystemUnderTest::expectWholeLog(const Dictionary& preferences) const {
  const std::string log = tests::readAll(logFile());
  EXPECT_TRUE(log.empty() || log.ends_with('\n')) << "an unfinished line";
  if (holdsLineEnd(preferences)) return;
  for (std::size_t begin = 0; begin < log.size();) {
    const std::size_t end = log.find('\n', begin);
    const std::string line = log.substr(begin, end - begin);
    EXPECT_TRUE(isStamped(line)) << line;
    begin = end + 1;
  }
}

void SystemUnderTest::expectTrueStatus(const Dictionary& preferences) {
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
