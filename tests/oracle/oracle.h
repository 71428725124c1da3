// A second, simple implementation of the daemon's rules that runs beside the daemon. It learns
// which work item ran, derives the steps that the rules require, and checks each with the
// transcript. The transcript supplies the kernel's answers and the contents of files; all other
// state is the oracle's own. Of the daemon's code it uses only the property-list value.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "base/plist_value.h"
#include "tests/oracle/transcript.h"
#include "tests/support/text.h"

namespace vorlatch::tests {

class Oracle {
 public:
  Oracle(Transcript& daemon, std::int32_t own_pid) : daemon_(daemon), own_pid_(own_pid) {}

  // Call when the daemon started, and when another program posted the notification.
  void started();
  void posted();
  // Call after the first work item of a queue ran, or a timer's tick that began at `now_ns`.
  void ranQueue(const std::string& queue);
  void ranTimer(int id, std::uint64_t now_ns);
  // Call when time passed without any work.
  void idledUntil(std::uint64_t now_ns) const;

  struct Timer {
    std::uint64_t due_ns;
    std::uint64_t interval_ns;
    std::function<void()> tick;
  };
  [[nodiscard]] const std::map<int, Timer>& timers() const { return timers_; }
  [[nodiscard]] bool isWatched(const std::string& key) const { return watch_timers_.contains(key); }
  [[nodiscard]] const plist::Dictionary& status() const { return status_; }
  // Maps a bundle's directory to the identifier that the daemon knows.
  [[nodiscard]] const std::map<std::string, std::string>& identifiers() const {
    return identifiers_;
  }

  using Targets = std::map<std::string, plist::Dictionary>;
  // The targets in these preferences; std::nullopt if they switch the daemon off.
  static std::optional<Targets> targetsIn(const std::optional<plist::Dictionary>& preferences);
  static plist::Dictionary preset();

 private:
  using PIDs = std::map<std::string, std::int32_t>;
  // A target of a restore.
  struct Target {
    std::string key;
    std::int32_t pid = 0;
  };

  // Passes and their triggers.
  void arm();
  void pass();
  void switchOff();
  void restoreRemoved(const Targets& configured);
  void reconcile(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  void switchTo(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  void restoreLater(std::vector<Target> targets);
  void tick(const std::string& key, const plist::Dictionary& settings, std::int32_t interval_s);
  void patrol();
  void sweep(const Targets& targets);
  int startTimer(std::uint64_t start_ns, std::uint64_t interval_ns, std::uint64_t leeway_ns,
                 std::function<void()> tick);
  void cancelTimer(int id);
  void cancelWatchTimer(const std::string& key);

  // Files.
  void clearLog();
  std::optional<Targets> configuredTargets() { return targetsIn(daemon_.readsPreferences()); }

  // Processes.
  std::int32_t pidOf(const std::string& key);
  PIDs runningProcesses();
  void walk(const std::function<bool(std::int32_t)>& visit);
  // The name that the kernel left in the buffer, and whether the call succeeded.
  std::pair<std::string, bool> nameOf(std::int32_t pid);
  // The identifier of the process's bundle, which may be empty; std::nullopt without a bundle.
  std::optional<std::string> bundleOf(std::int32_t pid);
  std::optional<std::string> identifierOf(const std::string& bundle_directory);

  // One process.
  void apply(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  void applyLimits(const plist::Dictionary& settings, std::int32_t pid);
  void applyNiceValue(const plist::Dictionary& settings, std::int32_t pid);
  void lineAboutNice(std::int64_t wanted, std::int64_t actual);
  void applyBand(const plist::Dictionary& settings, std::int32_t pid);
  void applyManaged(const plist::Value& strip, std::int32_t pid);
  void giveBack(const std::string& key, std::int32_t pid);
  void protectItself();
  std::int32_t band(std::int32_t pid);
  void verifyBand(std::int32_t pid, std::int64_t result, std::int32_t requested);
  void record(const std::string& key, std::int32_t pid, std::int64_t nice_value, std::int32_t band);

  // With a buffer of these words, or without a buffer.
  Answer memorystatus(int command, std::int32_t pid, int flags,
                      const std::vector<std::int32_t>& words = {});
  std::int64_t getNice(std::int32_t pid);
  std::int64_t setNice(std::int32_t pid, int value);
  template <typename... Parts>
  void line(const Parts&... parts) {
    daemon_.logs(text(parts...));
  }

  Transcript& daemon_;
  std::int32_t own_pid_;

  std::map<std::string, std::deque<std::function<void()>>> queues_;
  std::map<int, Timer> timers_;  // by id, in the order of starting
  int last_timer_ = 0;
  int debounce_timer_ = 0;
  std::map<std::string, int> watch_timers_;
  std::set<std::string> known_;
  std::map<std::string, plist::Dictionary> applied_;
  PIDs last_pids_;
  plist::Dictionary status_;
  std::map<std::string, std::string> identifiers_;
};

}  // namespace vorlatch::tests
