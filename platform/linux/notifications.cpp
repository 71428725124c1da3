#include "platform/notifications.h"

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "base/descriptor.h"
#include "platform/linux/installation.h"

// A post opens and closes a file of that name in a directory that all processes of the root share.
// The kernel (inotify) reports each file closed after writing to the observers. Nothing is stored:
// a process that does not watch at that moment misses the post.
namespace vorlatch::platform {
namespace {

constexpr mode_t kSharedFileMode = 0666;

std::string directoryPath() {
  return runtimePath("notifications");
}

// Returns the name as a single path component: escapes "/", "%" and a leading ".".
std::string fileName(std::string_view name) {
  constexpr std::string_view kHexadecimal = "0123456789abcdef";
  std::string file;
  for (const char c : name) {
    if (c != '/' && c != '%' && (c != '.' || !file.empty())) {
      file += c;
      continue;
    }
    const auto byte = static_cast<unsigned char>(c);
    file += '%';
    file += kHexadecimal[byte >> 4U];
    file += kHexadecimal[byte & 0xFU];
  }
  return file;
}

int openDirectory(const std::string& path) {
  return open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

// Creates the directory for all processes, unless an observer or a post already has.
bool makeSharedDirectory() {
  return makeDirectory(runtimeDirectory(), kRuntimeDirectoryMode) &&
         makeDirectory(directoryPath(), kRuntimeDirectoryMode);
}

int openSharedDirectory() {
  const std::string path = directoryPath();
  const int directory = openDirectory(path);
  if (directory >= 0 || errno != ENOENT) return directory;
  makeSharedDirectory();
  return openDirectory(path);
}

// Sets the mode only of a file that it creates, because an existing one may be another user's link
// to anything. Opens an existing file without O_CREAT, because kernels with fs.protected_regular
// refuse O_CREAT for another user's file.
int openForPosting(int directory, const std::string& file) {
  constexpr int kFlags = O_WRONLY | O_NOFOLLOW | O_CLOEXEC | O_NONBLOCK;
  const int made = openat(directory, file.c_str(), kFlags | O_CREAT | O_EXCL, kSharedFileMode);
  if (made >= 0) fchmod(made, kSharedFileMode);
  if (made >= 0 || errno != EEXIST) return made;
  return openat(directory, file.c_str(), kFlags);
}

class Observers {
 public:
  void add(const char* name, Work handler) {
    if (descriptor_ < 0) descriptor_ = inotify_init1(IN_CLOEXEC);
    if (descriptor_ < 0) return;
    handlers_.emplace(fileName(name), std::move(handler));
    watchDirectory();
  }

  // Runs the observers' handlers for ever, or only waits if inotify fails or nobody observes.
  [[noreturn]] void serve() {
    for (;;) {
      if (descriptor_ < 0 || !serveOnce()) pause();
    }
  }

 private:
  // What one read reported. Several posts of a name count as one.
  struct Seen {
    std::set<std::string, std::less<>> files;
    bool all = false;
    bool directory_gone = false;
  };

  // Watching an inode again returns its existing watch. Events of other watches are ignored.
  void watchDirectory() {
    makeSharedDirectory();
    watch_ = inotify_add_watch(
        descriptor_, directoryPath().c_str(),
        IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR | IN_DONT_FOLLOW);
  }

  bool serveOnce() {
    alignas(inotify_event) std::array<char, 16384> buffer{};
    const ssize_t length = read(descriptor_, buffer.data(), buffer.size());
    if (length <= 0) return length < 0 && errno == EINTR;
    Seen seen;
    std::string_view events(buffer.data(), static_cast<std::size_t>(length));
    while (events.size() >= sizeof(inotify_event)) {
      inotify_event event{};
      std::memcpy(&event, events.data(), sizeof(event));
      note(event, events.substr(sizeof(event), event.len), seen);
      events.remove_prefix(sizeof(event) + event.len);
    }
    if (seen.directory_gone) {
      recover();
      // Runs every handler, because posts to the new directory before it was watched were missed.
      seen.all = true;
    }
    run(seen);
    return true;
  }

  void note(const inotify_event& event, std::string_view padded_name, Seen& seen) const {
    // The kernel dropped events: any name may have been posted.
    if ((event.mask & IN_Q_OVERFLOW) != 0) seen.all = true;
    if (event.wd != watch_) return;
    if ((event.mask & IN_CLOSE_WRITE) != 0) {
      seen.files.emplace(padded_name.substr(0, padded_name.find('\0')));
    }
    if ((event.mask & (IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED)) != 0)
      seen.directory_gone = true;
  }

  void recover() {
    inotify_rm_watch(descriptor_, watch_);
    watchDirectory();
  }

  void run(const Seen& seen) const {
    for (const auto& [file, handler] : handlers_) {
      if (seen.all || seen.files.contains(file)) handler();
    }
  }

  int descriptor_ = -1;
  int watch_ = -1;
  std::multimap<std::string, Work, std::less<>> handlers_;
};

Observers& observers() {
  static Observers& one = *new Observers;
  return one;
}

}  // namespace

void observeNotification(const char* name, Work handler) {
  observers().add(name, std::move(handler));
}

bool postNotification(const char* name) {
  const Descriptor directory(openSharedDirectory());
  if (directory.get() < 0) return false;
  // Closing the file is what notifies the observers.
  return Descriptor(openForPosting(directory.get(), fileName(name))).get() >= 0;
}

// On Linux only notifications are delivered to the main thread.
void runMainLoop() {
  observers().serve();
}

}  // namespace vorlatch::platform
