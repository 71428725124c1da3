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
#include "cli/command.h"
#include "fuzz/support/fuzzer.h"
#include "tests/cli/control_run.h"

namespace vorlatch::fuzz {

using namespace std::chrono_literals;

// The keys and values of preferences files.
const Words& preferencesWords();

// Only one per process, because the daemon cannot be shut down.
class SystemUnderTest : public tests::ControlStory {
 public:
  SystemUnderTest();

  // Runs one input: `story` starts with vorlatchd, backboardd, SpringBoard and WeChat on the
  // device.
  void feed(const std::function<void()>& story);

  // Advances time to `time` after the start of the story.
  void runTo(std::chrono::nanoseconds time) const;
  // Simulates sleep of the device until then: what became due meanwhile runs late.
  void sleepTo(std::chrono::nanoseconds time);

  // Write the preferences without notifying the daemon. The valid preferences have one target per
  // kind of key.
  void putPreferences(std::string_view bytes) const;
  void putSoundPreferences() const;
  // Makes a pass take over the targets that only a patrol has applied. Without it no pass would
  // restore them after their removal, because the daemon was never notified of their file.
  void takeChargeOfHeld() const;
  // type() runs a command line, look() a command that only reads, edit() one that changes the
  // preferences. Each also checks what holds for all commands. look() and edit() skip the argument
  // parser, which is slower than most commands.
  tests::Output type(const Words& words);
  tests::Output look(const Words& words, bool wants_json);
  tests::Output edit(const Words& words, bool wants_json);
  // Expects every log line to be complete and stamped, unless a key of the preferences contains a
  // line feed.
  void expectWholeLog(const plist::Dictionary& preferences) const;
  // Expects exactly the running targets of the preferences in the status file, with correct values.
  void expectTrueStatus(const plist::Dictionary& preferences);

 private:
  // The effects of processing a file.
  struct Doings {
    tests::Lines log;
    tests::Lines calls;
    plist::Dictionary status;
    friend bool operator==(const Doings&, const Doings&) = default;
  };

  void prepareDevice();
  void prepareFiles() const;
  // Makes the daemon release everything it holds.
  void letGo() const;
  void waitForNextPeriod();
  Doings doWithSoundFile();
  tests::Output runCommand(const Words& words, bool wants_json);
  void expectSound(const tests::Output& output, bool is_json) const;
  // The bytes of each file in the daemon's directory by name, without its log and status file.
  [[nodiscard]] std::map<std::string, std::string> files() const;
  // `before` are the files before an edit. With `may_put_back`, the file that an interrupted
  // release set aside may be gone.
  void expectOnlyPreferencesChanged(std::map<std::string, std::string> before,
                                    bool may_put_back) const;

  std::string wechat_;
  std::uint64_t begin_ns_ = 0;
  Doings at_first_;
  std::set<std::string> keys_of_story_;  // of the targets that this input has configured so far
};

}  // namespace vorlatch::fuzz
