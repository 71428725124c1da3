#include "tests/faults/device_story.h"

#include <algorithm>
#include <filesystem>
#include <set>
#include <utility>

#include "tests/faults/gate.h"
#include "tests/faults/rules.h"
#include "tests/support/story.h"

namespace vorlatch::faults {
namespace {

using tests::Story;
using namespace std::chrono_literals;

// The one app, found by its bundle alone: its process has another name.
constexpr const char* kApp = "com.tencent.xin";
constexpr std::int64_t kCalmMs = 1'800'000;
constexpr unsigned kModeOfEveryFile = 0666;

// What the settings decide about a process, as the kernel has it.
std::string standingOf(Story& story, const Settings& settings, const simulated::Process& process) {
  const model::JetsamRecord record = story.device.jetsam(process.pid);
  std::string text = "nice " + std::to_string(process.nice_value) + ", limits " +
                     std::to_string(record.active.limit_mb) + '/' +
                     std::to_string(record.inactive.limit_mb);
  if (settings.band != -1) {
    text += ", band " + std::to_string(record.effective_band);
  }
  if (settings.band != -1 || settings.strip) {
    text += record.managed ? ", managed" : ", unmanaged";
  }
  if (settings.strip) {
    text += std::string(record.freezable ? ", freezable" : ", unfreezable") +
            (record.elevated ? ", elevated" : ", not elevated");
  }
  if (settings.strip == true) text += ", role " + std::to_string(record.darwin_role);
  return text;
}

// A story with its rules beside it.
class RuledStory : public Story {
 public:
  // The gate keeps the calls.
  RuledStory() : rules(places()) { device.is_tracing = false; }

  Rules rules;

  void write(const Preferences& preferences) {
    writePreferences(dictionaryOf(preferences));
    rules.preferences = preferences;
  }
  void startRuled() {
    Gate::get().watch([this] { start(); });
    rules.start();
    until(0);
  }
  void until(std::int64_t ms) {
    Gate::get().watch([&] { run(std::chrono::milliseconds(ms - now_ms_)); });
    now_ms_ = ms;
    rules.until(ms);
    check();
  }
  void postAt(std::int64_t ms) {
    until(ms);
    post();
    rules.post();
  }
  // The process that the key means: its name, or the identifier of the one app.
  simulated::Process* process(const std::string& key) {
    for (const simulated::Process& candidate : device.processes()) {
      const bool is_app = key == kApp && candidate.executable_path.ends_with(".app/Executable");
      if (candidate.name == key || is_app) return device.find(candidate.pid);
    }
    return nullptr;
  }
  void exit(const std::string& key) {
    if (const simulated::Process* gone = process(key)) device.exit(gone->pid);
  }
  void relaunch(const simulated::Launch& launch) {
    exit(launch.name);
    device.launch(launch);
  }
  void launchApp() {
    device.launch(
        {.name = "An",
         .executable_path = installApp("An.app", plist::Dictionary{{"CFBundleIdentifier", kApp}})});
  }

  // Nothing fails any more: after a patrol and some ticks, and again after a pass, all stand right.
  Told calm(const Standing* expected) {
    const std::size_t calls_before = Gate::get().calls().size();
    // Planned for a call that an earlier fault has kept from being made.
    Gate::get().plan({});
    until(now_ms_ + kCalmMs);
    requireStanding(expected, [this](const std::string& key, const Settings& settings) {
      // Without its timer, which a pass over unreadable preferences took away, only a pass helps.
      return settings.interval_s == 0 || rules.isWatched(key);
    });
    postAt(now_ms_);
    until(now_ms_ + 1000);
    requireStanding(expected, [](const std::string&, const Settings&) { return true; });
    return {.calls_before_calm = calls_before, .standing = standing()};
  }

 private:
  Places places() {
    return {.log = logFile(),
            .preferences = preferencesFile(),
            .status = statusFile(),
            .identifiers = {{rootPath("/Applications/An.app"), kApp}}};
  }

  void check() const {
    if (const std::string log = tests::readAll(logFile()); !rules.calls.isLog(log)) {
      throw Breach("the log is\n" + log + "and not\n" + rules.calls.expectedLog());
    }
    if (rules.status() &&
        (status() != *rules.status() || tests::modeOf(statusFile()) != kModeOfEveryFile)) {
      throw Breach("the status file is not the one last written");
    }
    requireOnlyOwnFiles();
  }

  // What could not be removed may stay.
  void requireOnlyOwnFiles() const {
    const auto& calls = Gate::get().calls();
    const bool may_stay = std::any_of(calls.begin(), calls.end(), [](const Call& call) {
      return call.name == "unlink" && call.result != 0;
    });
    const std::set<std::string> own{logFile(), preferencesFile(), statusFile()};
    for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
      if (!may_stay && !own.contains(entry.path())) {
        throw Breach("left behind: " + entry.path().filename().string());
      }
    }
  }

  Standing standing() {
    Standing all;
    if (!rules.preferences) return all;
    for (const auto& [key, settings] : rules.preferences->targets) {
      const simulated::Process* running = process(key);
      if (running != nullptr) all[key] = standingOf(*this, settings, *running);
    }
    return all;
  }

  template <typename Includes>
  void requireStanding(const Standing* expected, const Includes& includes) {
    if (expected == nullptr) return;
    for (const auto& [key, actual] : standing()) {
      if (!includes(key, rules.preferences->targets.at(key))) continue;
      if (actual != expected->at(key)) {
        throw Breach(key + " stands at " + actual + " and not at " + expected->at(key));
      }
    }
  }

  std::int64_t now_ms_ = 0;
};

}  // namespace

Told tellFirstStart(const Standing* expected) {
  RuledStory story;
  story.device.launch({.name = "kbd"});
  story.launchApp();
  story.device.launch({.name = "SpringBoard"});
  story.startRuled();
  story.until(1000);
  return story.calm(expected);
}

Told tellDay(const Standing* expected) {
  RuledStory story;
  tests::writeAll(story.logFile(), "earlier\n");
  story.rules.calls.beginLog("earlier\n");
  tests::writeAll(story.statusFile(), "from an earlier run");
  for (const char* name : {"adapted", "refused", "watched"}) story.device.launch({.name = name});
  story.device.launch({.name = "plain", .nice_value = -1});
  story.process("refused")->overriding_nice = 5;
  story.process("refused")->nice_value = 5;
  story.launchApp();
  Preferences preferences{
      .targets = {
          {"adapted", {.active_mb = -1, .nice = 7, .band = 2100}},
          {kApp, {.active_mb = 300, .inactive_mb = 200, .nice = -5, .band = 160, .strip = true}},
          {"plain", {}},
          {"refused", {.band = 999, .strip = false}},
          {"waiting", {.nice = 2, .band = -1, .interval_s = 530}},
          {"watched", {.active_mb = 100, .nice = -19, .band = 100, .interval_s = 410}},
      }};
  story.write(preferences);
  story.startRuled();
  story.until(600'000);  // ticks of a target that runs and of one that does not
  story.relaunch({.name = "waiting"});
  story.until(1'100'000);  // ... and a start
  story.exit("watched");
  story.until(1'300'000);  // ... and an exit
  story.relaunch({.name = "watched"});
  story.until(1'700'000);
  story.exit("plain");
  story.relaunch({.name = "adapted"});
  story.until(1'900'000);  // the patrol finds one gone and one with another process

  preferences.log_limit_bytes = 1000;
  preferences.targets.erase("refused");
  preferences.targets.erase("waiting");
  preferences.targets["adapted"].nice = 8;
  preferences.targets["newcomer"] = {.strip = false};
  story.exit("waiting");
  story.exit(kApp);
  story.launchApp();
  story.write(preferences);
  story.postAt(2'000'000);
  story.postAt(2'000'100);
  story.until(2'001'000);  // the log is emptied, two are handed back, one of them gone

  preferences.is_enabled = false;
  story.write(preferences);
  story.postAt(2'010'000);
  story.until(2'011'000);
  preferences.is_enabled = true;
  preferences.log_limit_bytes = 1'000'000;
  story.relaunch({.name = "newcomer"});
  story.relaunch({.name = "plain"});
  story.write(preferences);
  story.postAt(2'020'000);
  story.until(2'021'000);
  return story.calm(expected);
}

}  // namespace vorlatch::faults
