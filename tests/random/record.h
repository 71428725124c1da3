// What the daemon did in one work item, in order: its platform calls and its log lines.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/descriptor.h"
#include "base/plist_value.h"
#include "tests/oracle/observer.h"
#include "tests/simulated/device.h"

namespace vorlatch::tests::random {

// The contents of the files that the daemon reads.
struct Files {
  std::optional<plist::Dictionary> preferences;  // std::nullopt if they cannot be read
  bool preferences_in_place = false;
  bool log_in_place = true;
  std::map<std::string, plist::Dictionary> info_plists;  // by bundle directory
};

class Record : public Observer {
 public:
  Record(const Files& files, std::string log_path);

  void begin(std::vector<simulated::Call> calls);
  // Ends the work item: fails if there are calls or log lines left.
  void end();

  Answer call(std::string_view function, const std::vector<std::int64_t>& arguments,
              const std::optional<Buffer>& buffer) override;
  std::uint64_t schedules(const std::string& call) override { return take(call).at_ns; }
  void logs(const std::string& line) override;
  bool lacksMemory() override { return false; }
  void opensLog() override {}
  bool clearsLog(std::int64_t limit_bytes) override;
  bool findsNoPreferences() override { return !files_.preferences_in_place; }
  void writesPreset(const plist::Dictionary&) override {}
  std::optional<plist::Dictionary> readsPreferences() override { return files_.preferences; }
  std::optional<plist::Dictionary> readsInfoPlist(const std::string& bundle_directory) override;
  void writesStatus(const plist::Dictionary&) override { ++status_writes_; }
  bool isNext(const std::string& scheduling_call) override;
  std::size_t distanceTo(const std::string& line) override;

  // The size of the log.
  [[nodiscard]] std::uint64_t logBytes() const { return log_read_; }
  [[nodiscard]] std::uint64_t lineCount() const { return line_count_; }
  // How often the status file had to be written.
  [[nodiscard]] int statusWrites() const { return status_writes_; }

 private:
  const simulated::Call& next(std::string_view wanted);
  // Consumes the call with this text, whatever its result.
  const simulated::Call& take(const std::string& text);
  void readLog();
  [[noreturn]] void fail(std::string_view wanted) const;

  const Files& files_;
  std::string log_path_;
  std::optional<Descriptor> log_file_;
  std::uint64_t log_read_ = 0;
  std::string unread_log_;
  std::vector<simulated::Call> calls_;
  std::size_t next_call_ = 0;
  std::uint64_t line_count_ = 0;
  int status_writes_ = 0;
  std::vector<std::string> matched_;
};

}  // namespace vorlatch::tests::random
