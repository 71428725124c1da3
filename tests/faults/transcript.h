// Compares the calls that the fault injector recorded, in order, with the oracle, and derives from
// them the expected log, status file and preferences.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/plist_value.h"
#include "tests/faults/call.h"
#include "tests/oracle/observer.h"

namespace vorlatch::faults {

// The paths of the daemon's files, and the identifier in each bundle directory.
struct Places {
  std::string log;
  std::string preferences;
  std::string status;
  std::map<std::string, std::string> identifiers = {};
};

class Transcript : public tests::Observer {
 public:
  explicit Transcript(Places places) : places_(std::move(places)) {}

  // The contents of the preferences file; std::nullopt if there is none.
  std::optional<plist::Dictionary> preferences;
  // The time of the calls that come next.
  std::uint64_t now_ns = 0;

  // Sets the bytes that the log contained before the start.
  void beginLog(const std::string& bytes) { logs_ = {{.text = bytes}}; }
  // Whether the log may contain these bytes. Several logs are possible after a failed call that
  // decides where standard error points: lines may be lost, or the file may stay uncleared.
  [[nodiscard]] bool isLog(const std::string& bytes) const;
  [[nodiscard]] const std::string& expectedLog() const { return logs_.front().text; }
  // The contents of the status file; std::nullopt before it was first written.
  [[nodiscard]] const std::optional<plist::Dictionary>& status() const { return status_; }
  // Whether posted notifications reach the daemon.
  [[nodiscard]] bool isObserving() const { return is_observing_; }
  // Fails if calls are left.
  void end() const;

  tests::Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
                     const std::optional<tests::Buffer>& buffer) override;
  // The fault injector records only observeNotification, which is the only one that can fail.
  std::uint64_t schedules(const std::string& call) override;
  void logs(const std::string& line) override;
  bool lacksMemory() override;
  void opensLog() override;
  bool clearsLog(std::int64_t limit_bytes) override;
  bool findsNoPreferences() override;
  void writesPreset(const plist::Dictionary& preset) override;
  std::optional<plist::Dictionary> readsPreferences() override;
  std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory) override;
  void writesStatus(const plist::Dictionary& status) override;
  bool isNext(const std::string&) override { return false; }
  std::size_t distanceTo(const std::string& line) override;

 private:
  struct Log {
    std::string text = {};
    bool is_bound = false;
  };

  const Call& next(std::string_view name, const std::vector<std::int64_t>& arguments = {});
  [[nodiscard]] bool nextIs(std::string_view name) const;
  // Consumes the next calls, however many, that concern the file or its temporary file. Calls on
  // /dev/null, which may replace the log, and flushes before a redirection are included.
  std::vector<Call> onFile(const std::string& path);
  bool readsList(const std::string& path);
  bool writesList(const std::string& path);
  void bindLog(const std::vector<Call>& calls, bool emptying);
  bool logExceeds(std::int64_t bytes, bool claimed);
  [[noreturn]] void fail(const std::string& expected) const;

  Places places_;
  std::size_t read_ = 0;
  std::vector<Log> logs_ = {{}};  // the possible logs
  std::optional<plist::Dictionary> status_;
  bool is_observing_ = false;
};

}  // namespace vorlatch::faults
