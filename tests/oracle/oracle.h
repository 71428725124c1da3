// A second, plain reading of the daemon's rules, beside the daemon. It is told which piece of work
// ran, goes through what the rules say of it, and has the witness take each step of the daemon in
// turn: the kernel's answers and what files hold come from there, everything else from what the
// oracle remembers. It shares the property-list value with the daemon, and nothing else.
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
#include "tests/oracle/witness.h"

namespace vorlatch::tests {

class Oracle {
 public:
  Oracle(Witness& witness, std::int32_t own_pid) : witness_(witness), own_pid_(own_pid) {}

  // The daemon started; another program posts the notification.
  void started();
  void posted();
  // A piece of work ran that began at this time: the first one sent to a queue, or a timer's.
  void ranQueue(const std::string& queue);
  void ranTimer(int id, std::uint64_t now_ns);
  // Time passed up to now, as nothing was left to do.
  void idledUntil(std::uint64_t now_ns) const;
  // The first queue with work that was sent to it and did not run.
  [[nodiscard]] std::optional<std::string> waitingQueue() const;

  struct Timer {
    std::uint64_t due_ns;
    std::uint64_t interval_ns;
    std::function<void()> tick;
  };
  [[nodiscard]] const std::map<int, Timer>& timers() const { return timers_; }
  [[nodiscard]] bool isWatched(const std::string& key) const { return watch_timers_.contains(key); }
  [[nodiscard]] const plist::Dictionary& status() const { return status_; }
  // The identifier by which the daemon knows the bundle in this directory.
  std::optional<std::string> identifierOf(const std::string& bundle_directory);

  static plist::Dictionary preset();

 private:
  using Targets = std::map<std::string, plist::Dictionary>;
  using PIDs = std::map<std::string, std::int32_t>;
  // A target of a pass, a sweep or a restore.
  struct Target {
    std::string key;
    plist::Dictionary settings = {};
    std::int32_t pid = 0;
    std::string line = {};  // by which its work is told in the log; empty when it logs nothing
    std::string call = {};  // by which it is told then; empty when it makes none either
  };

  // Passes and what starts them.
  void arm();
  void pass();
  void switchOff();
  void restoreRemoved(const Targets& configured);
  void reconcile(const Target& target);
  void restoreLater(std::vector<Target> targets);
  void tick(const std::string& key, const plist::Dictionary& settings, std::int32_t interval_s);
  void patrol();
  void sweep(const Targets& targets);
  // Takes out the target whose turn it is. The order is the daemon's choice, and the witness sees
  // it, but for targets of which no more than a status write is seen: these are taken in the order
  // of their keys, as are new watch timers with one interval.
  Target takeNext(std::vector<Target>& targets);

  int startTimer(std::uint64_t start_ns, std::uint64_t interval_ns, std::uint64_t leeway_ns,
                 std::function<void()> tick);
  void cancelTimer(int id);
  void cancelTimers(std::vector<int> timers);  // in any order

  // Files.
  void clearLog();
  // By the preferences as they are now; nothing when they switch the daemon off.
  std::optional<Targets> configuredTargets();

  // Processes.
  std::int32_t pidOf(const std::string& key);
  PIDs runningProcesses();
  void walk(const std::function<bool(std::int32_t)>& visit);
  // What the kernel left as its name, and whether it said that this is one.
  std::pair<std::string, bool> nameOf(std::int32_t pid);
  // The identifier of the bundle that it runs from; nothing without one, and it may be empty.
  std::optional<std::string> bundleOf(std::int32_t pid);

  // One process.
  void apply(const std::string& key, const plist::Dictionary& settings, std::int32_t pid);
  void applyLimits(const plist::Dictionary& settings, std::int32_t pid);
  void applyNiceValue(const plist::Dictionary& settings, std::int32_t pid);
  void applyBand(const plist::Dictionary& settings, std::int32_t pid);
  void applyManaged(const plist::Value& strip, std::int32_t pid);
  void giveBack(const std::string& key, std::int32_t pid);
  void protectItself();
  std::int32_t band(std::int32_t pid);
  void verifyBand(std::int32_t pid, std::int64_t result, std::int32_t requested);
  void record(const std::string& key, std::int32_t pid, std::int64_t nice_value, std::int32_t band);

  // With a buffer of these words, or without one.
  Answer memorystatus(int command, std::int32_t pid, int flags,
                      const std::vector<std::int32_t>& words = {});
  std::int64_t getNice(std::int32_t pid);
  std::int64_t setNice(std::int32_t pid, int value);
  void line(const std::string& text) { witness_.logs(text); }

  Witness& witness_;
  std::int32_t own_pid_;

  std::map<std::string, std::deque<std::function<void()>>> queues_;
  std::map<int, Timer> timers_;  // by number, in the order in which they were started
  int last_timer_ = 0;
  int debounce_timer_ = 0;
  std::map<std::string, int> watch_timers_;
  std::set<std::string> known_;
  std::map<std::string, plist::Dictionary> applied_;
  PIDs last_pids_;
  plist::Dictionary status_;
  std::map<std::string, std::string> identifiers_;  // by bundle directory
};

}  // namespace vorlatch::tests
