#include "control/log_filter.h"

#include <utility>

#include "control/log_messages.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kMostNames = 1000;
constexpr std::size_t kLongestBlock = 100;  // lines; the daemon writes fewer than 20

}  // namespace

void LogFilter::take(const LogLine& line, const PassOn& pass_on) {
  const PassOn pass_on_category = [&](const LogLine& each) {
    if (category_.empty() || each.category == category_) pass_on(each);
  };
  if (!target_) return pass_on_category(line);
  const std::optional<RecognisedLine> known = recognised(line);
  if (!known) return;
  if (const std::optional<std::string_view> name = known->target()) {
    takeNaming(line, known->message->code, *name, pass_on_category);
  } else if (known->message->is_of_target) {
    takeNameless(line, pass_on_category);
  } else {
    takeOthers(line, known->message->code);
  }
}

void LogFilter::takeNaming(const LogLine& line, std::string_view code, std::string_view name,
                           const PassOn& pass_on) {
  if (named_.size() < kMostNames) named_.emplace(name);
  const bool is_wanted = name == *target_;
  if (code == "target-applied") {
    const bool is_of_sweep = block_target_ != name;
    if (is_of_sweep && is_wanted) {
      for (const LogLine& each : sweep_) pass_on(each);
    }
    sweep_.clear();
    is_sweeping_ = is_sweeping_ || is_of_sweep;
    is_unsure_ = is_sweeping_ && !is_of_sweep;
    if (!is_of_sweep) block_target_.reset();
  } else if (code != "target-hand-back-done") {
    if (is_wanted && rule_) pass_on(*rule_);
    rule_.reset();
    const bool begins_block = code != "target-exited" && code != "target-handed-back";
    if (begins_block) block_target_ = name;
  }
  if (is_wanted) pass_on(line);
}

void LogFilter::takeNameless(const LogLine& line, const PassOn& pass_on) {
  if (block_target_ && !is_sweeping_) {
    if (block_target_ == target_) pass_on(line);
  } else if (is_sweeping_ && !block_target_ && !is_unsure_) {
    if (sweep_.size() == kLongestBlock) sweep_.clear();
    sweep_.push_back(line);
  }
}

void LogFilter::takeOthers(const LogLine& line, std::string_view code) {
  if (code == "target-rule") rule_ = line;
  const bool is_start = code == "daemon-started";
  if (is_start) block_target_.reset();
  if (is_start || code == "patrol-begins" || code == "patrol-done") {
    is_sweeping_ = code == "patrol-begins";
    is_unsure_ = false;
    sweep_.clear();
  }
}

}  // namespace vorlatch::control
