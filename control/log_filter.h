// Selects lines of the daemon's log.
#pragma once

#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "control/log_reader.h"

namespace vorlatch::control {

// Passes on the lines of one target, or of all, and of one category; an empty one selects all.
//
// Most lines do not name their target, and the daemon writes from two queues. The debounce queue
// writes blocks that begin by naming their target. A patrol's sweep, on the worker queue, names a
// target only in the last line of its block. While both write, nobody can say to which block a
// line without a name belongs: such a line is not passed on.
class LogFilter {
 public:
  using PassOn = std::function<void(const LogLine&)>;

  LogFilter(std::optional<std::string> target, std::string category)
      : target_(std::move(target)), category_(std::move(category)) {}

  void take(const LogLine& line, const PassOn& pass_on);

  // Returns the targets that the lines named, at most 1000. Only if lines of one target are
  // selected.
  [[nodiscard]] const std::set<std::string, std::less<>>& namedTargets() const { return named_; }

 private:
  void takeNaming(const LogLine& line, std::string_view code, std::string_view name,
                  const PassOn& pass_on);
  void takeOthers(const LogLine& line, std::string_view code);
  void takeNameless(const LogLine& line, const PassOn& pass_on);

  const std::optional<std::string> target_;
  const std::string category_;
  std::set<std::string, std::less<>> named_;
  std::optional<LogLine> rule_;              // the separator of the block that begins
  std::optional<std::string> block_target_;  // of the debounce queue's unfinished block
  bool is_sweeping_ = false;
  // A block ended during the sweep: the end may have been that of the sweep's own block.
  bool is_unsure_ = false;
  std::vector<LogLine> sweep_;  // the sweep's unfinished block
};

}  // namespace vorlatch::control
