#include "tests/faults/device_story.h"

#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include "tests/faults/fault_injector.h"
#include "tests/faults/transcript.h"
#include "tests/oracle/oracle.h"
#include "tests/oracle/reading.h"
#include "tests/support/story.h"

namespace vorlatch::faults {
namespace {

using plist::Dictionary;
using tests::Mismatch;
using tests::Story;
using namespace std::chrono_literals;

// The only app. Only its bundle identifies it, because its process has a different name.
constexpr const char* kApp = "com.tencent.xin";
constexpr std::int64_t kCalmMs = 1'800'000;
constexpr std::uint64_t kNsPerMs = 1'000'000;
constexpr unsigned kModeOfEveryFile = 0666;

// The preferences that a story writes.
struct Preferences {
  Dictionary targets;
  bool is_enabled = true;
  std::int64_t log_limit_bytes = 2'097'152;

  [[nodiscard]] Dictionary list() const {
    return {{"Enabled", is_enabled}, {"LogSizeLimit", log_limit_bytes}, {"AppConfigs", targets}};
  }
};

// The state of a process in the kernel, as far as the settings determine it.
std::string standingOf(Story& story, const Dictionary& settings,
                       const simulated::Process& process) {
  const model::JetsamRecord record = story.device.jetsam(process.pid);
  const bool has_band = tests::intIn(settings, "JetsamPriority") != -1;
  const plist::Value* strip = plist::find(settings, "StripManaged");
  std::string text = "nice " + std::to_string(process.nice_value) + ", limits " +
                     std::to_string(record.active.limit_mb) + '/' +
                     std::to_string(record.inactive.limit_mb);
  if (has_band) text += ", band " + std::to_string(record.effective_band);
  if (has_band || strip != nullptr) text += record.managed ? ", managed" : ", unmanaged";
  if (strip != nullptr) {
    text += std::string(record.freezable ? ", freezable" : ", unfreezable") +
            (record.elevated ? ", elevated" : ", not elevated");
    if (tests::isTrue(*strip)) text += ", role " + std::to_string(record.darwin_role);
  }
  return text;
}

// A story in which the oracle follows the calls that the fault injector recorded.
class RuledStory : public Story {
 public:
  // Tracing is off because the fault injector records the calls.
  RuledStory() { device.is_tracing = false; }

  Transcript transcript{places()};

  void write(const Preferences& preferences) {
    writePreferences(preferences.list());
    transcript.preferences = preferences.list();
  }
  void startRuled() {
    FaultInjector::get().watch([this] { start(); });
    oracle_.started();
    until(0);
  }
  // Runs the story to this time and checks it. No two timers may be due at the same time.
  void until(std::int64_t ms) {
    FaultInjector::get().watch([&] { run(std::chrono::milliseconds(ms - now_ms_)); });
    now_ms_ = ms;
    const std::uint64_t end_ns = static_cast<std::uint64_t>(ms) * kNsPerMs;
    followQueues();
    for (auto next = nextTimer(); next.due_ns <= end_ns; next = nextTimer()) {
      transcript.now_ns = next.due_ns;
      oracle_.ranTimer(next.id, next.due_ns);
      followQueues();
    }
    transcript.now_ns = end_ns;
    transcript.end();
    check();
  }
  void postAt(std::int64_t ms) {
    until(ms);
    post();
    if (transcript.isObserving()) oracle_.posted();
  }
  // The process with the key as its name or, for the app, as its identifier.
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

  // Stops all faults. Checks every target after a patrol and some ticks, and again after a pass.
  Told calm(const Standing* expected) {
    const std::size_t calls_before = FaultInjector::get().calls().size();
    // Drops faults planned for calls that an earlier fault prevented.
    FaultInjector::get().plan({});
    until(now_ms_ + kCalmMs);
    requireStanding(expected, [this](const std::string& key, const Dictionary& settings) {
      // Without its timer, which a pass over unreadable preferences cancels, only a pass helps.
      return !settings.contains("CheckInterval") || oracle_.isWatched(key);
    });
    postAt(now_ms_);
    until(now_ms_ + 1000);
    requireStanding(expected, [](const std::string&, const Dictionary&) { return true; });
    return {.calls_before_calm = calls_before, .standing = standing()};
  }

 private:
  struct DueTimer {
    int id = 0;
    std::uint64_t due_ns = ~std::uint64_t{0};
  };
  [[nodiscard]] DueTimer nextTimer() const {
    DueTimer next;
    for (const auto& [id, timer] : oracle_.timers()) {
      if (timer.due_ns < next.due_ns) next = {.id = id, .due_ns = timer.due_ns};
    }
    return next;
  }
  void followQueues() {
    while (const auto queue = oracle_.waitingQueue()) oracle_.ranQueue(*queue);
  }

  [[nodiscard]] Places places() const {
    return {.log = logFile(),
            .preferences = preferencesFile(),
            .status = statusFile(),
            .identifiers = {{rootPath("/Applications/An.app"), kApp}}};
  }

  void check() const {
    if (const std::string log = tests::readAll(logFile()); !transcript.isLog(log)) {
      throw Mismatch("the log is\n" + log + "and not\n" + transcript.expectedLog());
    }
    if (transcript.status() &&
        (status() != *transcript.status() || tests::modeOf(statusFile()) != kModeOfEveryFile)) {
      throw Mismatch("the status file is not the one last written");
    }
    requireOnlyOwnFiles();
  }

  // A file whose removal failed may remain.
  void requireOnlyOwnFiles() const {
    const auto& calls = FaultInjector::get().calls();
    const bool may_stay = std::any_of(calls.begin(), calls.end(), [](const Call& call) {
      return call.name == "unlink" && call.result != 0;
    });
    const std::set<std::string> own{logFile(), preferencesFile(), statusFile()};
    for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
      if (!may_stay && !own.contains(entry.path())) {
        throw Mismatch("left behind: " + entry.path().filename().string());
      }
    }
  }

  [[nodiscard]] std::map<std::string, Dictionary> targets() const {
    std::map<std::string, Dictionary> all;
    if (!transcript.preferences) return all;
    for (const auto& [key, settings] : *transcript.preferences->at("AppConfigs").as<Dictionary>()) {
      all[key] = *settings.as<Dictionary>();
    }
    return all;
  }

  Standing standing() {
    Standing all;
    for (const auto& [key, settings] : targets()) {
      const simulated::Process* running = process(key);
      if (running != nullptr) all[key] = standingOf(*this, settings, *running);
    }
    return all;
  }

  template <typename Includes>
  void requireStanding(const Standing* expected, const Includes& includes) {
    if (expected == nullptr) return;
    const auto configured = targets();
    for (const auto& [key, actual] : standing()) {
      if (!includes(key, configured.at(key))) continue;
      if (actual != expected->at(key)) {
        throw Mismatch(key + " stands at " + actual + " and not at " + expected->at(key));
      }
    }
  }

  tests::Oracle oracle_{transcript, getpid()};
  std::int64_t now_ms_ = 0;
};

}  // namespace

Told playFirstStart(const Standing* expected) {
  RuledStory story;
  story.device.launch({.name = "kbd"});
  story.launchApp();
  story.device.launch({.name = "SpringBoard"});
  story.startRuled();
  story.until(1000);
  return story.calm(expected);
}

Told playDay(const Standing* expected) {
  RuledStory story;
  tests::writeAll(story.logFile(), "earlier\n");
  story.transcript.beginLog("earlier\n");
  tests::writeAll(story.statusFile(), "from an earlier run");
  for (const char* name : {"adapted", "refused", "watched"}) story.device.launch({.name = name});
  story.device.launch({.name = "plain", .nice_value = -1});
  story.process("refused")->overriding_nice = 5;
  story.process("refused")->nice_value = 5;
  story.launchApp();
  Preferences preferences{
      .targets = {
          {"adapted",
           Dictionary{{"MemLimitActive", -1}, {"NiceValue", 7}, {"JetsamPriority", 2100}}},
          {kApp, Dictionary{{"MemLimitActive", 300},
                            {"MemLimitInactive", 200},
                            {"NiceValue", -5},
                            {"JetsamPriority", 160},
                            {"StripManaged", true}}},
          {"plain", Dictionary{}},
          {"refused", Dictionary{{"JetsamPriority", 999}, {"StripManaged", false}}},
          {"waiting", Dictionary{{"NiceValue", 2}, {"JetsamPriority", -1}, {"CheckInterval", 530}}},
          {"watched", Dictionary{{"MemLimitActive", 100},
                                 {"NiceValue", -19},
                                 {"JetsamPriority", 100},
                                 {"CheckInterval", 410}}},
      }};
  story.write(preferences);
  story.startRuled();
  story.until(600'000);  // ticks of a running target and of one that does not run
  story.relaunch({.name = "waiting"});
  story.until(1'100'000);  // ... and a start
  story.exit("watched");
  story.until(1'300'000);  // ... and an exit
  story.relaunch({.name = "watched"});
  story.until(1'700'000);
  story.exit("plain");
  story.relaunch({.name = "adapted"});
  story.until(1'900'000);  // the patrol finds one target exited and one restarted

  preferences.log_limit_bytes = 1000;
  preferences.targets.erase("refused");
  preferences.targets.erase("waiting");
  preferences.targets.at("adapted").as<Dictionary>()->insert_or_assign("NiceValue", 8);
  preferences.targets.emplace("newcomer", Dictionary{{"StripManaged", false}});
  story.exit("waiting");
  story.exit(kApp);
  story.launchApp();
  story.write(preferences);
  story.postAt(2'000'000);
  story.postAt(2'000'100);
  story.until(2'001'000);  // clears the log, restores a running and an exited target

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
