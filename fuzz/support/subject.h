// What inputs are told to: the whole daemon on the simulated device, and vorlatchctl beside it. The
// daemon keeps state for as long as it lives, and so from input to input. Each input therefore
// finds the device as the first one did, at the same point of the patrol's period, with a daemon
// that holds nothing; and at its end the daemon has to do with a sound file exactly what it did
// before the first input. So an input that leaves something behind is itself a finding, and a
// finding does not depend on the inputs before it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "base/plist_value.h"
#include "cli/command.h"
#include "fuzz/support/fuzzer.h"
#include "tests/cli/control_run.h"

namespace vorlatch::fuzz {

using namespace std::chrono_literals;

// What preferences files are made of.
const Words& preferencesWords();

// One a process: the daemon in it is never taken apart.
class Subject : public tests::ControlStory {
 public:
  Subject();

  // Tells one input: `story` begins when the device stands as it always does, with vorlatchd,
  // backboardd, SpringBoard and WeChat on it.
  void tell(const std::function<void()>& story);

  // Since the story began.
  void runTo(std::chrono::nanoseconds time) const;
  // The device sleeps until then: what became due meanwhile is late.
  void sleepTo(std::chrono::nanoseconds time);

  // Neither of the two tells the daemon. The sound preferences have a target by each kind of key.
  void putPreferences(std::string_view bytes) const;
  void putSoundPreferences() const;
  // A patrol holds targets of a file that nobody told the daemon about, and no pass hands them back
  // when they go; a pass that finds them takes charge of them.
  void takeChargeOfHeld() const;
  // Types a command line, gives a command that looks, one that edits: and expects of the answer and
  // of the files what holds for all of them. The latter two do without the argument parser, which
  // takes longer than most commands.
  tests::Output type(const Words& words);
  tests::Output look(const Words& words, bool wants_json);
  tests::Output edit(const Words& words, bool wants_json);
  // Every line of the log is whole and stamped; a key of the preferences that holds a line end may
  // break lines.
  void expectWholeLog(const plist::Dictionary& preferences) const;
  // The status file holds, with true values, exactly the targets of the preferences that run.
  void expectTrueStatus(const plist::Dictionary& preferences);

 private:
  // What the daemon did.
  struct Doings {
    tests::Lines log;
    tests::Lines calls;
    plist::Dictionary status;
    friend bool operator==(const Doings&, const Doings&) = default;
  };

  void prepareDevice();
  void prepareFiles() const;
  // The daemon lets go of whatever it holds.
  void letGo() const;
  void waitForNextPeriod();
  Doings doWithSoundFile();
  tests::Output runCommand(const Words& words, bool wants_json);
  void expectSound(const tests::Output& output, bool is_json) const;
  // The bytes of each file in the daemon's directory but its log and status file, by name.
  [[nodiscard]] std::map<std::string, std::string> files() const;
  // `before` are the files before an edit. With `may_put_back` what an interrupted release set
  // aside may be gone.
  void expectOnlyPreferencesChanged(std::map<std::string, std::string> before,
                                    bool may_put_back) const;

  std::string wechat_;
  std::uint64_t begin_ns_ = 0;
  Doings at_first_;
};

}  // namespace vorlatch::fuzz
