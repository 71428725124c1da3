#include "config/files.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

#include "platform/descriptor.h"

namespace vorlatch {
namespace {

constexpr mode_t kEveryoneReadsAndWrites = 0666;

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

void createEmptyFile(const std::string& path) {
  const Descriptor created(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kEveryoneReadsAndWrites));
}

void letEveryoneReadAndWrite(const std::string& path) {
  ::chmod(path.c_str(), kEveryoneReadsAndWrites);
}

std::optional<std::int64_t> fileSize(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return std::nullopt;
  return status.st_size;
}

void reopenStream(std::FILE* stream, const std::string& path, const char* mode) {
  if (std::freopen(path.c_str(), mode, stream) != nullptr) return;
  // After a failed freopen the C library counts the stream as free for the next fopen.
  static_cast<void>(std::freopen("/dev/null", mode, stream));
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit_bytes) {
  // Not blocking, so that a FIFO in the file's place holds nobody up.
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return std::nullopt;
  }
  if (static_cast<std::uint64_t>(status.st_size) > limit_bytes) return std::nullopt;
  // One byte more than the file is said to hold, so that the read that fills it also sees its end.
  std::string contents(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t length = 0;
  while (true) {
    const ssize_t got = ::read(file.get(), contents.data() + length, contents.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
    if (length > limit_bytes) return std::nullopt;  // it grew while it was read
    if (length == contents.size()) contents.resize(2 * length);
  }
  contents.resize(length);
  return contents;
}

bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         const std::function<bool()>& may_replace) {
  std::string temporary = path + ".XXXXXX";
  const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.isOpen()) return false;
  // The mode before the move, so that there is no moment at which readers are shut out.
  bool written = ::fchmod(file.get(), kEveryoneReadsAndWrites) == 0 && writeWhole(file, bytes);
  if (written && may_replace && !may_replace()) {
    errno = ESTALE;
    written = false;
  }
  written = written && ::rename(temporary.c_str(), path.c_str()) == 0;
  if (!written) {
    const int error = errno;
    ::unlink(temporary.c_str());
    errno = error;
  }
  return written;
}

}  // namespace vorlatch
