// What the daemon did in one work item, in order, as the device's trace shows it, and what its
// files must contain after it.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"
#include "tests/oracle/observer.h"
#include "tests/simulated/device.h"

namespace vorlatch::tests::random {

// The daemon's files, and the contents of those that it reads.
struct Files {
  std::string log;
  std::string preferences_file;
  std::string status_file;
  std::optional<plist::Dictionary> preferences = std::nullopt;  // std::nullopt if unreadable
  std::map<std::string, plist::Dictionary> info_plists = {};    // by bundle directory
};

class Transcript : public Observer {
 public:
  // The files, and what the log contains before the start.
  Transcript(Files& files, const std::string& log) : files_(files), logs_{{.text = log}} {}

  void begin(std::vector<simulated::Call> calls);
  // Ends the work item: fails if there are calls left.
  void end() const;

  // Whether posted notifications reach the daemon.
  [[nodiscard]] bool isObserving() const { return is_observing_; }
  // What this work item wrote to the status file and to the preferences, if it did.
  std::optional<plist::Dictionary> written_status;
  std::optional<plist::Dictionary> written_preset;
  // Whether a temporary file may remain, because its removal failed.
  [[nodiscard]] bool leavesTemporary() const { return leaves_temporary_; }
  // Whether the log may contain these bytes. Several logs are possible after a failed call that
  // decides where standard error points: lines may be lost, or the file may stay uncleared.
  [[nodiscard]] bool isLog(const std::string& bytes) const;
  [[nodiscard]] const std::string& expectedLog() const { return logs_.front().text; }

  Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
              const std::optional<Buffer>& buffer) override;
  std::uint64_t schedules(const std::string& call) override;
  void logs(const std::string& line) override;
  bool lacksMemory() override { return take("allocate", "").answer.result == 0; }
  void opensLog() override { bindLog(onFile(files_.log), false); }
  bool clearsLog(std::int64_t limit_bytes) override;
  bool findsNoPreferences() override;
  void writesPreset(const plist::Dictionary& preset) override;
  std::optional<plist::Dictionary> readsPreferences() override;
  std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory) override;
  void writesStatus(const plist::Dictionary& status) override;
  bool isNext(const std::string& scheduling_call) override;

 private:
  struct Log {
    std::string text = {};
    bool is_bound = false;
  };
  using Calls = std::vector<simulated::Call>;

  [[nodiscard]] bool nextIs(std::string_view function) const;
  // Consumes the call with this text, whatever its result.
  const simulated::Call& take(std::string_view function, const std::string& text);
  // Consumes the next calls, however many, that concern the file or its temporary file. Calls on
  // /dev/null, which may replace the log, and flushes before a redirection are included.
  Calls onFile(const std::string& path);
  // Whether the daemon read the file; `is_list` says whether it is a property list.
  bool readsList(const std::string& path, bool is_list);
  bool writesList(const std::string& path);
  void bindLog(const Calls& calls, bool emptying);
  bool logExceeds(std::int64_t bytes, bool claimed);
  [[noreturn]] void fail(const std::string& wanted) const;

  Files& files_;
  std::vector<Log> logs_;  // the possible logs
  Calls calls_;
  std::size_t next_ = 0;
  bool is_observing_ = false;
  bool leaves_temporary_ = false;
};

}  // namespace vorlatch::tests::random
