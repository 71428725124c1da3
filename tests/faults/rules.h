// The daemon's rules, read a second time: what it must do with the answers that its calls got. The
// rules run behind the daemon, along its calls; nothing of it is used but the property-list value.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/plist_value.h"
#include "tests/faults/settings.h"
#include "tests/faults/transcript.h"

namespace vorlatch::faults {

// Where the daemon's files are, and the identifier in each bundle directory.
struct Places {
  std::string log;
  std::string preferences;
  std::string status;
  std::map<std::string, std::string> identifiers = {};
};

class Rules {
 public:
  explicit Rules(Places places) : places_(std::move(places)) {}

  // What the preferences file holds; nothing when there is none.
  std::optional<Preferences> preferences;
  Transcript calls;

  void start();
  void post();
  // What is due up to then, in its order. No two things may be due at once.
  void until(std::int64_t ms);

  // The file's contents; nothing as long as it was not written.
  [[nodiscard]] const std::optional<plist::Dictionary>& status() const { return status_file_; }
  // Whether the target has a watch timer.
  [[nodiscard]] bool isWatched(const std::string& key) const { return timers_.contains(key); }

 private:
  using Pids = std::map<std::string, std::int32_t>;
  struct Timer {
    std::int64_t due_ms;
    Settings settings;
  };

  // The rules of files.
  Preferences load();
  bool readList(const std::string& path);
  bool writeList(const std::string& path);
  void updateStatus(const std::string& key, std::int32_t pid, std::int64_t nice, std::int64_t band);
  void limitLog();
  // The rules of processes.
  std::vector<std::int32_t> processIds();
  std::string nameOf(std::int32_t pid, bool must_be_told);
  std::string identifierOf(std::int32_t pid);
  std::int32_t find(const std::string& key);
  Pids findAll();
  // The rules of one process's settings.
  const Call& control(std::int32_t command, std::int32_t pid, std::int32_t flags = 0,
                      const std::vector<std::int32_t>& record = {});
  std::int32_t bandOf(std::int32_t pid);
  void verifyBand(std::int32_t pid, std::int64_t set_result, std::optional<std::int32_t> wanted);
  void protectItself();
  void apply(const std::string& key, const Settings& settings, std::int32_t pid);
  void holdLimits(const Settings& settings, std::int32_t pid);
  void holdNice(const Settings& settings, std::int32_t pid);
  void holdBand(std::int32_t band, std::int32_t pid);
  void setManaged(bool strip, std::int32_t pid);
  void restore(const std::string& key, std::int32_t pid);
  // The rules of passes, ticks and patrols.
  void pass();
  void release(const std::set<std::string>& keys, const std::string& message);
  void reconcile(const std::string& key, const Settings& settings, std::int32_t pid);
  void tick(const std::string& key, Timer& timer);
  void patrol();
  void changed(const std::string& key, const Settings& settings, std::int32_t pid);

  Places places_;
  std::int64_t now_ms_ = 0;
  bool observes_ = false;
  std::optional<std::int64_t> debounce_due_ms_;
  std::int64_t patrol_due_ms_ = 0;
  std::map<std::string, Timer> timers_;
  std::set<std::string> known_;
  std::map<std::string, Settings> applied_;
  Pids pids_;
  Pids to_restore_;  // on the worker queue, after what sent it
  std::map<std::string, std::string> cached_identifiers_;
  plist::Dictionary status_;
  std::optional<plist::Dictionary> status_file_;
};

}  // namespace vorlatch::faults
