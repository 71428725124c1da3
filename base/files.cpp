#include "base/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <utility>

namespace vorlatch {
namespace {

constexpr mode_t kEveryoneReadsAndWrites = 0666;
// Random bytes in the name of a file moved aside; each gives two hexadecimal digits.
constexpr std::size_t kAsideNumberBytes = 16;
// Temporary files are named FILE.tmp.XXXXXX, so that removeTemporariesOf does not take a user's
// FILE.backup for one.
constexpr const char* kTemporaryMark = ".tmp.";
constexpr std::size_t kTemporaryNumberLength = 6;

bool isRegular(const struct stat& status) {
  return S_ISREG(status.st_mode);
}

bool isPlain(const struct stat& status) {
  return isRegular(status) && status.st_nlink == 1;
}

// Returns true if the contents may be published. A file with several hard links may be a secret
// that another user linked here, so its mode must already let others read it.
bool isFitForEverybody(const struct stat& status) {
  return isPlain(status) || (isRegular(status) && (status.st_mode & S_IROTH) != 0);
}

// Opens the file if `is_meant` accepts it, and stores its status. Follows symbolic links unless the
// flags have O_NOFOLLOW. Uses O_NONBLOCK, so that a FIFO or another program's lease cannot block
// the daemon; the flag has no effect on reading or writing a regular file.
Descriptor openFile(const std::string& path, int flags, bool (*is_meant)(const struct stat&),
                    struct stat& status) {
  const int at_link = (flags & O_NOFOLLOW) != 0 ? AT_SYMLINK_NOFOLLOW : 0;
  if (::fstatat(AT_FDCWD, path.c_str(), &status, at_link) != 0 || !is_meant(status)) {
    return Descriptor(-1);
  }
  Descriptor file(::open(path.c_str(), flags | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0 || !is_meant(status)) {
    return Descriptor(-1);
  }
  return file;
}

Descriptor openPlainFile(const std::string& path, int access, struct stat& status) {
  return openFile(path, access | O_NOFOLLOW, isPlain, status);
}

// Opens the file, or /dev/null if it is not a plain file.
Descriptor openForAppending(const std::string& path) {
  struct stat status {};
  Descriptor file = openPlainFile(path, O_WRONLY | O_APPEND, status);
  return file.isOpen() ? std::move(file) : Descriptor(::open("/dev/null", O_RDWR | O_CLOEXEC));
}

// Redirects the stream without reopening a path, which may name another file by now.
bool point(std::FILE* stream, const Descriptor& file) {
  std::fflush(stream);
  const bool is_pointed = ::dup2(file.get(), ::fileno(stream)) >= 0;
  std::clearerr(stream);
  return is_pointed;
}

std::optional<std::string> contentsOf(const Descriptor& file, const struct stat& status,
                                      std::size_t limit_bytes) {
  if (!file.isOpen()) return std::nullopt;
  if (static_cast<std::uint64_t>(status.st_size) > limit_bytes) return std::nullopt;
  // One byte more than st_size leaves room for the read that detects the end of the file.
  std::string contents(static_cast<std::size_t>(status.st_size) + 1, '\0');
  std::size_t length = 0;
  while (true) {
    const ssize_t got = ::read(file.get(), contents.data() + length, contents.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    length += static_cast<std::size_t>(got);
    if (length > limit_bytes) return std::nullopt;  // the file grew meanwhile
    if (length == contents.size()) contents.resize(std::min(2 * length, limit_bytes + 1));
  }
  contents.resize(length);
  return contents;
}

// Writes a temporary file beside `path`, which `prepare` gives its mode and owner, and renames it
// to `path`. On failure returns false with errno and removes the temporary file.
bool replaceFile(const std::string& path, std::string_view bytes,
                 const std::function<bool(const Descriptor&)>& prepare,
                 const std::function<bool()>& may_replace) {
  std::string temporary = path + kTemporaryMark + "XXXXXX";
  const Descriptor file(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!file.isOpen()) return false;
  bool written = prepare(file) && writeWhole(file, bytes);
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

// Returns this process's user; for root, the owner of the directory, or root if that is unknown.
uid_t ownerOfSecret(const std::string& path) {
  struct stat status {};
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  const bool is_root = ::geteuid() == 0;
  return is_root && ::stat(directory.c_str(), &status) == 0 ? status.st_uid : ::geteuid();
}

}  // namespace

bool fileExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 || (errno != ENOENT && errno != ENOTDIR);
}

std::optional<std::vector<std::string>> namesIn(const std::string& directory, std::size_t limit) {
  DIR* const opened = ::opendir(directory.c_str());
  if (opened == nullptr) return std::nullopt;
  std::vector<std::string> names;
  while (names.size() < limit) {
    const dirent* entry = ::readdir(opened);
    if (entry == nullptr) break;
    const std::string_view name(entry->d_name);
    if (name != "." && name != "..") names.emplace_back(name);
  }
  ::closedir(opened);
  return names;
}

bool isDirectory(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

void createEmptyFile(const std::string& path) {
  const Descriptor created(
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kEveryoneReadsAndWrites));
}

void moveAsideUnlessPlain(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || isPlain(status)) return;
  std::array<unsigned char, kAsideNumberBytes> number{};
  ::arc4random_buf(number.data(), number.size());
  std::string aside = path + ".aside.";
  for (const unsigned char byte : number) {
    aside += "0123456789abcdef"[byte >> 4U];
    aside += "0123456789abcdef"[byte & 0xFU];
  }
  ::rename(path.c_str(), aside.c_str());
}

void letEveryoneReadAndWrite(const std::string& path) {
  struct stat status {};
  for (const int access : {O_RDONLY, O_WRONLY}) {
    const Descriptor file = openPlainFile(path, access, status);
    if (file.isOpen() && ::fchmod(file.get(), kEveryoneReadsAndWrites) == 0) return;
  }
}

void pointStreamsAtEndOf(const std::string& path) {
  Descriptor file = openForAppending(path);
  if (!file.isOpen()) return;
  static_cast<void>(point(stdout, file));
  static_cast<void>(point(stderr, file));
  // If a standard stream was closed at the start, the file has got its number and stays open.
  if (file.get() <= STDERR_FILENO) file.release();
}

bool emptyUnderStreams(const std::string& path, std::int64_t limit_bytes) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || status.st_size <= limit_bytes) return false;
  const Descriptor err = openPlainFile(path, O_WRONLY, status);
  struct stat again {};
  const Descriptor out = openPlainFile(path, O_WRONLY, again);
  const bool is_one = status.st_dev == again.st_dev && status.st_ino == again.st_ino;
  if (!err.isOpen() || !out.isOpen() || !is_one || status.st_size <= limit_bytes) return false;
  // Keeps other threads from writing a line between the steps, where it would be lost.
  ::flockfile(stderr);
  // Redirects before truncating: a stream that kept its old offset would leave a hole in the file.
  const bool is_emptied =
      point(stdout, out) && point(stderr, err) && ::ftruncate(err.get(), 0) == 0;
  if (!is_emptied) {
    ::lseek(out.get(), 0, SEEK_END);
    ::lseek(err.get(), 0, SEEK_END);
  }
  ::funlockfile(stderr);
  return is_emptied;
}

Descriptor openRegularFile(const std::string& path) {
  struct stat status {};
  return openFile(path, O_RDONLY, isRegular, status);
}

std::optional<std::string> readFile(const std::string& path, std::size_t limit_bytes) {
  struct stat status {};
  const Descriptor file = openFile(path, O_RDONLY, isRegular, status);
  return contentsOf(file, status, limit_bytes);
}

std::optional<std::string> readFileToPublish(const std::string& path, std::size_t limit_bytes) {
  struct stat status {};
  const Descriptor file = openFile(path, O_RDONLY | O_NOFOLLOW, isFitForEverybody, status);
  return contentsOf(file, status, limit_bytes);
}

void removeTemporariesOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  const std::string directory = path.substr(0, slash + 1);
  const std::string beginning = path.substr(slash + 1) + kTemporaryMark;
  DIR* const opened = ::opendir(directory.c_str());
  if (opened == nullptr) return;
  while (const dirent* entry = ::readdir(opened)) {
    const std::string_view name(entry->d_name);
    if (name.size() == beginning.size() + kTemporaryNumberLength && name.starts_with(beginning)) {
      ::unlink((directory + std::string(name)).c_str());
    }
  }
  ::closedir(opened);
}

bool writeFileAtomically(const std::string& path, std::string_view bytes,
                         const std::function<bool()>& may_replace) {
  // Sets the mode before the rename, so that readers are never locked out.
  const auto publish = [](const Descriptor& file) {
    return ::fchmod(file.get(), kEveryoneReadsAndWrites) == 0;
  };
  return replaceFile(path, bytes, publish, may_replace);
}

std::optional<std::string> readSecretFile(const std::string& path, std::size_t limit_bytes) {
  struct stat status {};
  const Descriptor file = openPlainFile(path, O_RDONLY, status);
  if (!file.isOpen() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) return std::nullopt;
  if (status.st_uid != ownerOfSecret(path)) return std::nullopt;
  return contentsOf(file, status, limit_bytes);
}

bool writeSecretFile(const std::string& path, std::string_view bytes) {
  // The temporary file has mode 0600 from its beginning.
  const auto hand_over = [&path](const Descriptor& file) {
    return ::fchown(file.get(), ownerOfSecret(path), static_cast<gid_t>(-1)) == 0;
  };
  return replaceFile(path, bytes, hand_over, nullptr);
}

}  // namespace vorlatch
