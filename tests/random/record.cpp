#include "tests/random/record.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

#include "tests/simulated/trace_text.h"

namespace vorlatch::tests::random {
namespace {

// The platform call that every log line makes for its stamp.
constexpr std::string_view kStampCall = "localTimeStamp";
constexpr std::size_t kShownBefore = 6;

// Formats the buffer as the device does, which shows only whether a long buffer is zeroed.
std::string textOf(const Buffer& buffer) {
  constexpr std::int64_t kLongestShown = 32;
  if (buffer.size == 0) return "null";
  if (!buffer.holds) return "buffer";
  return buffer.size > kLongestShown ? "zeros" : simulated::hexGroups(*buffer.holds);
}

std::string textOf(std::string_view function, const std::vector<std::int64_t>& arguments,
                   const std::optional<Buffer>& buffer) {
  std::string text = std::string(function) + '(';
  for (const std::int64_t argument : arguments) {
    if (!text.ends_with('(')) text += ", ";
    text += argument == getpid() ? "self" : std::to_string(argument);
  }
  if (buffer) text += ", " + textOf(*buffer) + ", " + std::to_string(buffer->size);
  return text + ')';
}

std::string firstLine(const std::string& text) {
  return text.substr(0, text.find('\n'));
}

}  // namespace

Record::Record(const Files& files, std::string log_path)
    : files_(files), log_path_(std::move(log_path)) {
  struct stat status {};
  if (stat(log_path_.c_str(), &status) == 0) log_read_ = static_cast<std::uint64_t>(status.st_size);
}

void Record::begin(std::vector<simulated::Call> calls) {
  calls_ = std::move(calls);
  next_call_ = 0;
  matched_.clear();
}

void Record::end() {
  if (next_call_ != calls_.size()) fail("the end of this work");
  if (!log_file_) return;
  struct stat status {};
  fstat(log_file_->get(), &status);
  if (static_cast<std::uint64_t>(status.st_size) != log_read_ || !unread_log_.empty()) {
    readLog();
    throw Mismatch("the log holds what has no stamp of its own: " + unread_log_);
  }
}

const simulated::Call& Record::next(std::string_view wanted) {
  if (next_call_ == calls_.size()) fail(wanted);
  return calls_[next_call_];
}

const simulated::Call& Record::take(const std::string& text) {
  const simulated::Call& called = next(text);
  if (!isNext(text) ||
      (called.text.size() > text.size() && called.text.compare(text.size(), 3, " = ") != 0)) {
    fail(text);
  }
  if (called.answer.error != 0) error_number = called.answer.error;
  matched_.push_back(called.text);
  ++next_call_;
  return called;
}

Answer Record::call(std::string_view function, const std::vector<std::int64_t>& arguments,
                    const std::optional<Buffer>& buffer) {
  const simulated::Call& called = take(textOf(function, arguments, buffer));
  return {.result = called.answer.result, .left = called.left};
}

void Record::logs(const std::string& line) {
  const simulated::Call& stamp = next(line);
  if (stamp.function != kStampCall) fail(line);
  readLog();
  const std::string whole = '[' + stamp.text + "] " + line + '\n';
  if (!unread_log_.starts_with(whole)) fail(line);
  log_read_ += whole.size();
  unread_log_.erase(0, whole.size());
  matched_.push_back(line);
  ++line_count_;
  ++next_call_;
}

bool Record::clearsLog(std::int64_t limit_bytes) {
  if (!files_.log_in_place || log_read_ <= static_cast<std::uint64_t>(limit_bytes)) return false;
  log_read_ = 0;
  unread_log_.clear();
  return true;
}

std::optional<plist::Dictionary> Record::readsInfoPlist(const std::string& bundle_directory) {
  const auto info = files_.info_plists.find(bundle_directory);
  if (info == files_.info_plists.end()) return std::nullopt;
  return info->second;
}

bool Record::isNext(const std::string& scheduling_call) {
  return next_call_ < calls_.size() && calls_[next_call_].text.starts_with(scheduling_call);
}

std::size_t Record::distanceTo(const std::string& line) {
  readLog();
  return unread_log_.find("] " + line + '\n');
}

void Record::readLog() {
  if (!unread_log_.empty()) return;
  // Keeps the log open, because it may be removed.
  if (!log_file_) log_file_.emplace(open(log_path_.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status {};
  if (fstat(log_file_->get(), &status) != 0) return;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size <= log_read_) return;
  unread_log_.resize(size - log_read_);
  const ssize_t got = pread(log_file_->get(), unread_log_.data(), unread_log_.size(),
                            static_cast<off_t>(log_read_));
  unread_log_.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
}

void Record::fail(std::string_view wanted) const {
  std::string text = "wanted: " + std::string(wanted) + "\nfound:  ";
  if (next_call_ == calls_.size()) {
    text += "the end of this work";
  } else if (calls_[next_call_].function == kStampCall) {
    text += "in the log: " + firstLine(unread_log_);
  } else {
    text += calls_[next_call_].text;
  }
  const std::size_t first = matched_.size() - std::min(matched_.size(), kShownBefore);
  for (std::size_t i = first; i < matched_.size(); ++i) {
    text += (i == first ? "\nafter:  " : "\n        ") + matched_[i];
  }
  throw Mismatch(text);
}

}  // namespace vorlatch::tests::random
