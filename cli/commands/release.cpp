// vorlatchctl release
#include <cerrno>
#include <chrono>

#include "cli/command.h"
#include "config/preferences.h"
#include "control/edits.h"
#include "control/observation.h"
#include "control/set_aside.h"
#include "platform/notifications.h"

namespace vorlatch::cli {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kLookInterval{50};
// The daemon removes a target's status entry before it restores the target, so the last restore may
// still be running when no entry is left. If there was no entry from the start, the daemon runs its
// pass in this time.
constexpr milliseconds kSettling{500};

struct Options {
  bool keeps_preferences = false;
  int timeout_s = 10;
};

// Returns each target whose status entry names a running process that still matches its key.
std::vector<std::string> stillHeld() {
  const control::Observation observation = control::Observation::now();
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

// Returns the targets that were handed back; throws a Failure if some were not. Notifies a running
// daemon even if no target is held, because the daemon may be waiting for a target to start.
std::vector<std::string> awaitRelease(const Session& session, std::chrono::seconds timeout) {
  std::vector<std::string> held = stillHeld();
  if (control::Observation::now().daemon_pids.empty()) {
    if (held.empty()) return {};
    failCouldNot(
        tr("the daemon does not run, so %s stay as they are until they end; start it and run "
           "this again",
           joined(held)));
  }
  if (!platform::postNotification(kApplyNotificationName)) {
    failCouldNot(tr("the notification could not be posted, and the daemon goes on as before"));
  }
  std::vector<std::string> left = held;
  for (milliseconds waited{0}; waited < timeout && !left.empty(); waited += kLookInterval) {
    session.terminal.wait(kLookInterval);
    if (session.terminal.interrupted()) failCouldNot(tr("interrupted"));
    left = stillHeld();
  }
  if (!left.empty()) {
    failCouldNot(
        tr("after %s s the daemon still reports %s; vorlatchctl log shows what it does. A "
           "daemon that was started while it was switched off knows of none: vorlatchctl "
           "enable, then this again",
           timeout.count(), joined(left)));
  }
  session.terminal.wait(kSettling);
  if (session.terminal.interrupted()) failCouldNot(tr("interrupted"));
  return held;
}

void report(const Session& session, const std::vector<std::string>& released, bool kept) {
  if (session.wants_json) {
    print(session, {{"released", released}, {"preferences_kept", kept}});
    return;
  }
  printLine(session,
            released.empty() ? tr("nothing was held") : tr("handed back: %s", joined(released)));
}

ExitStatus release(const Session& session, const Options& options) {
  session.terminal.catch_signals();
  const std::chrono::seconds timeout(options.timeout_s);
  if (!options.keeps_preferences) {
    control::editPreferences(control::switchDaemon(false), true, control::Previous::NotKept);
    report(session, awaitRelease(session, timeout), false);
    return kDone;
  }
  control::SetAside preferences;
  const std::vector<std::string> released = awaitRelease(session, timeout);
  if (!preferences.putBack()) {
    failCouldNot(
        tr("the preferences stay in %s: %s", preferences.aside(), control::reasonOf(errno)));
  }
  report(session, released, true);
  return kDone;
}

Run prepare(Arguments& arguments) {
  const auto options = std::make_shared<Options>();
  arguments = {{.name = "--keep-preferences",
                .description = english("leave the preferences as they are afterwards"),
                .value = &options->keeps_preferences},
               {.name = "--timeout",
                .description = english("seconds to wait for the daemon"),
                .value = &options->timeout_s,
                .lowest = 1,
                .highest = 600}};
  return [options](const Session& session) { return release(session, *options); };
}

const RegisteredCommand kRelease({
    .name = "release",
    .description = english("hand every target back, and stay switched off"),
    .examples = "  vorlatchctl release\n  vorlatchctl release --keep-preferences",
    .place = 110,
    .prepare = prepare,
});

}  // namespace
}  // namespace vorlatch::cli
