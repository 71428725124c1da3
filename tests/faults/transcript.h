// The daemon's calls as the gate kept them, read in their order beside the oracle, and the log, the
// status file and the preferences that they must have made.
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
#include "tests/oracle/witness.h"

namespace vorlatch::faults {

// Where the daemon's files are, and the identifier in each bundle directory.
struct Places {
  std::string log;
  std::string preferences;
  std::string status;
  std::map<std::string, std::string> identifiers = {};
};

class Transcript : public tests::Witness {
 public:
  explicit Transcript(Places places) : places_(std::move(places)) {}

  // What the preferences file holds; nothing when there is none.
  std::optional<plist::Dictionary> preferences;
  // When the calls that come next were made.
  std::uint64_t now_ns = 0;

  // What a log that holds these bytes already goes on from.
  void beginLog(const std::string& bytes) { logs_ = {{.text = bytes}}; }
  // Whether the log may hold these bytes. Where a call failed that decides about the log's stream,
  // lines may be lost from then on, or the file not be emptied.
  [[nodiscard]] bool isLog(const std::string& bytes) const;
  [[nodiscard]] const std::string& expectedLog() const { return logs_.front().text; }
  // The status file's contents; nothing as long as it was not written.
  [[nodiscard]] const std::optional<plist::Dictionary>& status() const { return status_; }
  // Whether posts reach the daemon.
  [[nodiscard]] bool isObserving() const { return is_observing_; }
  // All calls were read.
  void end() const;

  tests::Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
                     const std::optional<tests::Buffer>& buffer) override;
  // Of these, the gate keeps only the one that can fail.
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
  // The file calls that come next, as long as they are about the file or a temporary one beside it,
  // in whatever number. Those on /dev/null, where a stream of the log may end, count with it, and
  // so does what is flushed before a stream is pointed elsewhere.
  std::vector<Call> onFile(const std::string& path);
  bool readsList(const std::string& path);
  bool writesList(const std::string& path);
  void bindLog(const std::vector<Call>& calls, bool emptying);
  bool logExceeds(std::int64_t bytes, bool claimed);
  [[noreturn]] void fail(const std::string& expected) const;

  Places places_;
  std::size_t read_ = 0;
  std::vector<Log> logs_ = {{}};  // each as it may be
  std::optional<plist::Dictionary> status_;
  bool is_observing_ = false;
};

}  // namespace vorlatch::faults
