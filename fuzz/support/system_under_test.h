// The system that inputs are fed to: the whole daemon on the simulated device, and vorlatchctl. The
// daemon keeps state between inputs. Therefore each input starts with the same device, at the same
// point of the patrol's period, and with a daemon that holds no process. After each input the
// daemon must process a valid file exactly as it did before the first input. An input that leaves
// state behind is thus itself a finding, and no finding depends on earlier inputs.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "base/plist_value.h"
#include "fuzz/support/fuzzer.h"
#include "tests/cli/control_run.h"

namespace vorlatch::fuzz {

using namespace std::chrono_literals;

// The keys and values of preferences files.
const Words& preferencesWords();

// Valid preferences: one target per kind of key and per stage of an application, with and without
// a watch timer.
const plist::Dictionary& soundPreferences();

// Bytes by name.
using Files = std::map<std::string, std::string>;

// Only one per process, because the daemon cannot be shut down.
class SystemUnderTest : public tests::ControlStory {
 public:
  SystemUnderTest();

  // Runs one input: `story` starts with vorlatchd, backboardd, SpringBoard and WeChat on the
  // device.
  void feed(const std::function<void()>& story);

  // Runs the device, lets it sleep until a second before the patrol, and runs the patrol. What
  // became due during the sleep runs late.
  void sleepUntilPatrol() const;
  // Writes the preferences without notifying the daemon.
  void putPreferences(std::string_view bytes) const;
  // Runs a command line and checks what holds for all commands.
  tests::Output type(const Words& words);
  // Expects every log line to be complete and stamped, unless a key of the preferences contains a
  // line feed.
  void expectWholeLog();
  // Expects in the status file exactly the running targets, with correct values.
  void expectTrueStatus();

 private:
  // Sets up the device and an empty directory with the log.
  void prepare();
  // Makes the daemon release everything it holds.
  void letGo() const;
  // The log, the calls and the status file after a valid file is read.
  tests::Lines doWithSoundFile();
  [[nodiscard]] std::uint64_t nextPatrolNs() const;
  // The files in the daemon's directory without its log and status file.
  [[nodiscard]] Files files() const;

  std::string wechat_;
  tests::Lines at_first_;
  std::set<std::string> keys_of_story_;  // of the targets that this input has configured so far
};

}  // namespace vorlatch::fuzz
