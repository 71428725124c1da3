// vorlatchctl release
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/files.h"
#include "cli/commands.h"
#include "cli/observation.h"
#include "cli/preferences_edit.h"
#include "platform/notifications.h"

namespace vorlatch::cli {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLookInterval{50};
// Between the last entry's removal from the status file and the end of that target's restoring, as
// the entry goes first; and where there is no entry, until the daemon has looked.
constexpr milliseconds kSettling{500};

// The preferences set aside, with a switched-off file in their place; put back when it goes,
// whatever ends the command. Killed on the spot, it leaves both files, and the next release with
// --keep-preferences puts them back; where somebody has edited the file in their place, the edit
// stays and only the switch is put back.
class SetAside {
 public:
  // What the first constructor has made is whole, so that they are put back whatever ends this one.
  SetAside() : SetAside(daemonFile(kPreferencesFileName)) {
    StoredPreferences off = readStoredPreferences(path_);
    if (fileExists(aside_)) off = leftByKilledRun(off);
    if (!off.exists) return;
    // A second name for the file first, so that at no moment there is none: for the file itself,
    // though a link may have come into its place.
    if (!fileExists(aside_) &&
        ::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, aside_.c_str(), 0) != 0) {
      failCouldNot(aside_ + ": " + reasonOf(errno));
    }
    is_aside_ = true;
    writeStoredPreferences(path_, switchedOff(off));
  }
  SetAside(const SetAside&) = delete;
  SetAside& operator=(const SetAside&) = delete;
  ~SetAside() { static_cast<void>(putBack()); }

  bool putBack() {
    if (!is_aside_) return true;
    is_aside_ = std::rename(aside_.c_str(), path_.c_str()) != 0;
    // Where the file in place was never replaced the two are one, and moving leaves both names.
    if (!is_aside_) ::unlink(aside_.c_str());
    return !is_aside_;
  }
  [[nodiscard]] const std::string& aside() const { return aside_; }

 private:
  explicit SetAside(std::string path)
      : path_(std::move(path)), aside_(path_ + ".released"), lock_(lockPreferences()) {}

  static StoredPreferences switchedOff(StoredPreferences preferences) {
    preferences.dictionary.insert_or_assign(keys::kEnabled, false);
    return preferences;
  }

  // What stands aside, or, where the file in its place was edited since, what stands there,
  // switched as it was.
  StoredPreferences leftByKilledRun(const StoredPreferences& in_place) {
    StoredPreferences left = readStoredPreferences(aside_);
    const bool is_untouched = !in_place.exists || isIdentical(switchedOff(left).dictionary,
                                                              switchedOff(in_place).dictionary);
    if (is_untouched) return left;
    StoredPreferences edited = in_place;
    if (!isEnabled(in_place.dictionary) && isEnabled(left.dictionary)) {
      edited.dictionary.insert_or_assign(keys::kEnabled, true);
      writeStoredPreferences(path_, edited);
    }
    if (::unlink(aside_.c_str()) != 0) failCouldNot(aside_ + ": " + reasonOf(errno));
    return edited;
  }

  const std::string path_;
  const std::string aside_;
  const Descriptor lock_;  // until they are back: an edit in between would be lost
  bool is_aside_ = false;
};

// The targets whose entry in the status file names a process that still runs under their key.
std::vector<std::string> stillHeld() {
  const Observation observation = Observation::now();
  std::vector<std::string> held;
  for (const auto& [key, written] : observation.status) {
    const RunningProcess* process = observation.process(written.pid);
    if (process != nullptr && isFoundBy(*process, key)) held.push_back(key);
  }
  return held;
}

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) text += (text.empty() ? "" : ", ") + word;
  return text;
}

// Gives the targets that were handed back; a Failure when some never were. Though none is held, a
// daemon that runs is told: it may be watching for one to start.
std::vector<std::string> awaitRelease(const Session& session, std::chrono::seconds timeout) {
  std::vector<std::string> held = stillHeld();
  if (Observation::now().daemon_pids.empty()) {
    if (held.empty()) return {};
    failCouldNot("the daemon does not run, so " + joined(held) +
                 " stay as they are until they end; start it and run this again");
  }
  if (!platform::postNotification(kApplyNotificationName)) {
    failCouldNot("the notification could not be posted, and the daemon goes on as before");
  }
  std::vector<std::string> left = held;
  for (milliseconds waited{0}; waited < timeout && !left.empty(); waited += kLookInterval) {
    session.terminal.wait(kLookInterval);
    if (session.terminal.interrupted()) failCouldNot("interrupted");
    left = stillHeld();
  }
  if (!left.empty()) {
    failCouldNot("after " + std::to_string(timeout.count()) + " s the daemon still reports " +
                 joined(left) + "; vorlatchctl log shows what it does. A daemon that was started " +
                 "while it was switched off knows of none: vorlatchctl enable, then this again");
  }
  session.terminal.wait(kSettling);
  if (session.terminal.interrupted()) failCouldNot("interrupted");
  return held;
}

void report(const Session& session, const std::vector<std::string>& released, bool kept) {
  if (session.wants_json) {
    print(session, {{"released", released}, {"preferences_kept", kept}});
    return;
  }
  printLine(session, released.empty() ? "nothing was held" : "handed back: " + joined(released));
}

}  // namespace

ExitStatus releaseCommand(const Session& session, const ReleaseOptions& options) {
  session.terminal.catch_signals();
  if (!options.keeps_preferences) {
    editPreferences(
        [](plist::Dictionary& preferences) { preferences.insert_or_assign(keys::kEnabled, false); },
        true);
    report(session, awaitRelease(session, options.timeout), false);
    return kDone;
  }
  SetAside preferences;
  const std::vector<std::string> released = awaitRelease(session, options.timeout);
  if (!preferences.putBack()) {
    failCouldNot("the preferences stay in " + preferences.aside() + ": " + reasonOf(errno));
  }
  report(session, released, true);
  return kDone;
}

}  // namespace vorlatch::cli
