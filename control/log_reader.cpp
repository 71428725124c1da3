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
constexpr std::size_t kLongestLine = std::size_t{64} * 1024;
constexpr std::size_t kBlockBytes = std::size_t{64} * 1024;

// MM-dd HH:mm:ss, in the digits and the 12- or 24-hour clock of the user's locale.
bool isStamp(std::string_view text) {
  return text.size() <= kLongestStamp && std::count(text.begin(), text.end(), ':') == 2 &&
         text.find(' ') != text.npos;
}

}  // namespace

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

}  // namespace vorlatch::control
