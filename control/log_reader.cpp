#include "control/log_reader.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "base/descriptor.h"
#include "base/files.h"
#include "control/failure.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kLongestStamp = 64;
constexpr std::size_t kRemembered = 64;
constexpr std::size_t kLongestBlock = 100;  // lines; the daemon writes fewer than 20
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;
constexpr std::string_view kTargetLabel = "目标: ";
constexpr std::string_view kCompleted = " 完成";

// MM-dd HH:mm:ss, in the digits and the 12- or 24-hour clock of the user's locale.
bool isStamp(std::string_view text) {
  return text.size() <= kLongestStamp && std::count(text.begin(), text.end(), ':') == 2 &&
         text.find(' ') != text.npos;
}

bool isRule(std::string_view text) {
  return !text.empty() &&
         (text.find_first_not_of('-') == text.npos || text.find_first_not_of('=') == text.npos);
}

// Returns true if the text is the target followed by one of the strings in `behind`. The target
// alone does not suffice, because its key may be the beginning of another target's key.
template <std::size_t n>
bool beginsWith(std::string_view text, std::string_view target,
                const std::array<std::string_view, n>& behind) {
  if (!text.starts_with(target)) return false;
  const std::string_view rest = text.substr(target.size());
  return std::any_of(behind.begin(), behind.end(),
                     [rest](std::string_view words) { return rest.starts_with(words); });
}

}  // namespace

const std::vector<std::string>& logCategories() {
  static const std::vector<std::string>& categories = *new std::vector<std::string>{
      "守护",       "内核", "配置", "进程",     "内存优先级", "内存限制",
      "进程优先级", "系统", "恢复", "状态剥离", "环境适配",   "全局守护"};
  return categories;
}

LogLine logLineOf(std::string_view line) {
  LogLine parts;
  std::string_view rest = line;
  const std::size_t stamp_end = rest.starts_with('[') ? rest.find(']') : rest.npos;
  if (stamp_end != rest.npos && isStamp(rest.substr(1, stamp_end - 1))) {
    parts.stamp = rest.substr(1, stamp_end - 1);
    rest.remove_prefix(stamp_end + 1);
    if (rest.starts_with(' ')) rest.remove_prefix(1);
  }
  if (!parts.stamp.empty() && rest.starts_with('[')) {
    const std::size_t end = rest.find(']');
    if (end != rest.npos) {
      parts.category = rest.substr(1, end - 1);
      rest.remove_prefix(end + 1);
      if (rest.starts_with(' ')) rest.remove_prefix(1);
    }
  }
  parts.text = rest;
  return parts;
}

bool LogReader::isStillTheSame(int file, std::int64_t size_bytes) {
  if (size_bytes < offset_) return false;
  std::array<char, kRemembered> bytes{};
  const auto length = static_cast<std::int64_t>(last_bytes_.size());
  const ssize_t got = ::pread(file, bytes.data(), last_bytes_.size(), offset_ - length);
  return got == length && std::equal(last_bytes_.begin(), last_bytes_.end(), bytes.begin());
}

std::string_view LogReader::nextBlock(int file, std::int64_t size_bytes) {
  // If the file system cannot report holes, the NULs of a hole are read.
  const off_t data = ::lseek(file, offset_, SEEK_DATA);
  if (data > offset_) {
    offset_ = data;
    last_bytes_.clear();
  }
  if (offset_ >= size_bytes || (data < 0 && errno == ENXIO)) return {};
  block_.resize(kBlockBytes);
  const ssize_t got = ::pread(file, block_.data(), block_.size(), offset_);
  if (got <= 0) return {};
  offset_ += got;
  return {block_.data(), static_cast<std::size_t>(got)};
}

bool LogReader::readNew(const std::function<void(LogLine)>& pass_on) {
  errno = 0;
  const Descriptor file = openRegularFile(path_);
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) {
    failCouldNot(errno != 0 ? path_ + ": " + reasonOf(errno) : tr("%s is no regular file", path_));
  }
  if (!isStillTheSame(file.get(), status.st_size)) {
    offset_ = 0;
    last_bytes_.clear();
    unfinished_.clear();
  }
  bool any = false;
  for (std::string_view read = nextBlock(file.get(), status.st_size); !read.empty();
       read = nextBlock(file.get(), status.st_size)) {
    last_bytes_ += read;
    last_bytes_.erase(0, last_bytes_.size() - std::min(last_bytes_.size(), kRemembered));
    for (const char c : read) {
      if (c == '\n') {
        any = true;
        pass_on(logLineOf(std::exchange(unfinished_, {})));
      } else if (c != '\0' && unfinished_.size() < kLongestLine) {
        unfinished_ += c;
      }
    }
  }
  return any;
}

bool LogFilter::names(const LogLine& line) const {
  static constexpr std::array<std::string_view, 4> kBehindLabelled = {" 已启动 PID: ", " 已退出",
                                                                      " PID: ", " | 检测: "};
  static constexpr std::array<std::string_view, 1> kBehindPlain = {" PID:"};
  const std::string_view text = line.text;
  if (!text.starts_with(kTargetLabel)) return beginsWith(text, target_, kBehindPlain);
  return beginsWith(text.substr(kTargetLabel.size()), target_, kBehindLabelled);
}

void LogFilter::take(LogLine line, const std::function<void(const LogLine&)>& pass_on) {
  if (target_.empty()) {
    if (category_.empty() || line.category == category_) pass_on(line);
    return;
  }
  const bool ends_block = line.text.ends_with(kCompleted);
  if (isRule(line.text)) finish(pass_on);
  block_.push_back(std::move(line));
  if (ends_block || block_.size() == kLongestBlock) finish(pass_on);
}

void LogFilter::finish(const std::function<void(const LogLine&)>& pass_on) {
  const std::vector<LogLine> block = std::exchange(block_, {});
  if (std::none_of(block.begin(), block.end(),
                   [this](const LogLine& line) { return names(line); })) {
    return;
  }
  for (const LogLine& line : block) {
    if (category_.empty() || line.category == category_) pass_on(line);
  }
}

}  // namespace vorlatch::control
