// Feeds kernel answers about processes to the daemon and vorlatchctl: their number, pids, names,
// paths and priorities, including answers that no real kernel would give. The input is a property
// list:
//   Processes   {Name, Path, Pid, Nice, Zombie}, all optional; newest last. A Path that begins with
//               @ is below the root's Applications.
//   Copies      how many copies of all processes run
//   AppConfigs  the targets
//   Answers     {Function, Command, Pid, First, Count, Result, Error, Buffer, Acts}: results that
//               replace those of the simulated device
#include <algorithm>
#include <cstring>
#include <set>

#include <gtest/gtest.h>

#include "base/utf8.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "fuzz/support/system_under_test.h"
#include "proc/process_lookup.h"

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Dictionary;
using plist::Value;

constexpr std::size_t kMostProcesses = 200;
// The largest result that an answer may claim, because memory is allocated for it. A process list
// may also claim kTooManyBytes or more, which is refused before an allocation.
constexpr int kMostBytes = 1 << 20;
constexpr int kTooManyBytes = 1 << 29;
constexpr std::size_t kLongestName = 31;

struct ProcessSystem : SystemUnderTest {
  ProcessSystem() {
    static_cast<void>(installApp("Other.appex", Dictionary{{"CFBundleIdentifier", "a.b"}}));
    static_cast<void>(installApp("Nameless.app", Dictionary{{"CFBundleIdentifier", ""}}));
    static_cast<void>(installApp("Odd.app", Dictionary{{"CFBundleIdentifier", 7}}));
  }
};

void launchProcesses(SystemUnderTest& system, const Dictionary& scene) {
  std::set<std::int32_t> pids;
  for (const auto& process : system.device.processes()) pids.insert(process.pid);
  std::int32_t next_pid = 1000;
  const auto copies = static_cast<std::size_t>(std::clamp(integerIn(scene, "Copies", 1), 1, 200));
  for (std::size_t copy = 0; copy < copies; ++copy) {
    for (const Value& entry : arrayIn(scene, "Processes")) {
      const auto* process = entry.as<Dictionary>();
      if (process == nullptr) continue;
      std::int32_t pid = copy == 0 ? integerIn(*process, "Pid", 0) : 0;
      if (pid == 0) pid = next_pid++;
      if (pids.size() >= kMostProcesses || !pids.insert(pid).second) continue;
      const std::string name = textIn(*process, "Name");
      std::string path = textIn(*process, "Path");
      if (path.starts_with('@')) path = system.rootPath("/Applications/") + path.substr(1);
      system.device.launch({.name = name,
                            .executable_path = path,
                            .pid = pid,
                            .nice_value = std::clamp(integerIn(*process, "Nice", 0), -20, 20)});
      if (isTrueIn(*process, "Zombie")) system.device.becomeZombie(pid);
    }
  }
}

// A call may claim any result, but gets a buffer with at least that many bytes. Otherwise old
// contents of another buffer would be read, which would not be repeatable.
void scriptAnswers(simulated::Device& device, const Dictionary& scene) {
  for (const Value& entry : arrayIn(scene, "Answers")) {
    const auto* answer = entry.as<Dictionary>();
    if (answer == nullptr) continue;
    simulated::Script script{.function = textIn(*answer, "Function"),
                             .first = std::clamp(integerIn(*answer, "First", 1), 1, 1000),
                             .count = std::clamp(integerIn(*answer, "Count", 1), 0, 1000),
                             .error = integerIn(*answer, "Error", 0) & 0x7F,
                             .acts = isTrueIn(*answer, "Acts")};
    if (answer->contains("Command")) script.command = integerIn(*answer, "Command", 0);
    if (answer->contains("Pid")) script.pid = integerIn(*answer, "Pid", 0);
    if (answer->contains("Result")) script.result = integerIn(*answer, "Result", 0);
    if (answer->contains("Buffer")) script.buffer = textIn(*answer, "Buffer");
    const bool is_refused = script.function == "proc_listpids" && script.result >= kTooManyBytes;
    if (script.result > kMostBytes && !is_refused) script.result = kMostBytes;
    if (script.result > 0 && script.result <= kMostBytes && !script.acts) {
      std::string bytes = script.buffer.value_or("");
      bytes.resize(std::max(bytes.size(), static_cast<std::size_t>(*script.result)));
      script.buffer = std::move(bytes);
    }
    device.script(script);
  }
}

// Expects each process to be found by its name, and both look-ups of vorlatchctl to agree with the
// daemon's.
void expectFound(const simulated::Device& device) {
  const RunningProcessMap running = getRunningProcessMap();
  const std::vector<RunningProcess> listed = listRunningProcesses();
  EXPECT_EQ(runningProcessMapOf(listed), running);
  std::set<std::int32_t> pids;
  for (const auto& process : device.processes()) {
    if (process.is_zombie || process.pid < 1) continue;
    pids.insert(process.pid);
    const std::string kept = process.name.substr(0, kLongestName);
    const std::string name = kept.substr(0, kept.find('\0'));
    if (name.empty() || !isValidUtf8(name)) continue;
    EXPECT_TRUE(running.contains(name)) << name;
  }
  for (const auto& [key, pid] : running) {
    EXPECT_TRUE(pids.contains(pid)) << key;
    EXPECT_TRUE(!key.empty() && isValidUtf8(key));
    EXPECT_EQ(pidForBundleIDIn(listed, key), getPIDForBundleID(key)) << key;
    if (pids.size() > 50) return;  // each look-up scans all processes
  }
}

// Process 0 may appear only in the call for the priority list of all processes.
void expectNoStrangerTouched(const tests::Lines& calls) {
  for (const std::string& call : calls) {
    if (call.starts_with("memorystatus_control(1,")) continue;
    const std::size_t pid = call.find(", ") + 2;
    EXPECT_TRUE((call[pid] >= '1' && call[pid] <= '9') || call.substr(pid, 4) == "self") << call;
  }
}

void look(SystemUnderTest& system, const std::string& key) {
  for (const char* command : {"ps", "plan", "doctor", "status", "check"}) {
    system.type({command});
    system.type({command, "--json"});
  }
  system.type({"match", "--", key});
  system.type({"match", "--json", "--", key});
  system.type({"__complete", "match", ""});
}

}  // namespace

const Words& vocabulary() {
  static const Words& words = *[] {
    auto* all = new Words(tests::wordsOf(
        "Processes Copies AppConfigs Answers Name Path Pid Nice Zombie Function Command "
        "First Count Result Error Buffer Acts proc_listpids proc_name proc_pidpath "
        "getpriority setpriority NiceValue memorystatus_control SpringBoard a.b "
        "CheckInterval com.tencent.xin @WeChat.app/ @WeChat.app/x @Odd.app/x @Other.appex/x "
        "@Nameless.app/x /x.app/y / %s%n \x1b[2J \xe2\x80\xae视\xe2\x80\xac = vorlatchd "
        "JetsamPriority"));
    for (const char* word : {"", "\n", "\t"}) all->emplace_back(word);
    return all;
  }();
  return words;
}

void feed(std::string_view input) {
  static ProcessSystem& system = *new ProcessSystem;
  const std::optional<Dictionary> scene = dictionaryIn(input);
  if (!scene) return;
  const Value* targets = plist::find(*scene, keys::kAppConfigs);
  const Dictionary preferences{{keys::kEnabled, true},
                               {keys::kAppConfigs, targets != nullptr ? *targets : Dictionary{}}};
  const std::string bytes = writtenAs(preferences, false);
  if (!propertyListIn(bytes)) return;
  system.feed([&] {
    launchProcesses(system, *scene);
    expectFound(system.device);
    system.putPreferences(bytes);
    scriptAnswers(system.device, *scene);
    system.device.is_tracing = true;
    system.postAndRun();
    system.sleepUntilPatrol();
    system.device.is_tracing = false;
    expectNoStrangerTouched(system.takeCalls());
    system.expectWholeLog();
    const Dictionary status = system.status();
    look(system, status.empty() ? std::string() : status.begin()->first);

    // Once the kernel answers correctly, the next change repairs everything.
    system.device.clearScripts();
    system.putPreferences("");
    system.postAndRun();
    system.putPreferences(bytes);
    system.postAndRun();
    system.expectTrueStatus();
    look(system, "SpringBoard");
  });
}

}  // namespace vorlatch::fuzz
