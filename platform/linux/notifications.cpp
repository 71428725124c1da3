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

// A post opens and closes the name's file in a directory that every process of the root shares; an
// observer has the kernel tell it of files there that were closed after writing. Nothing is kept:
// who does not watch at that moment hears nothing.
namespace vorlatch::platform {
namespace {

constexpr mode_t kSharedFileMode = 0666;

std::string directoryPath() {
  return runtimePath("notifications");
}

// The name as one component of a path: neither "/" nor a leading "." stays as it is.
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

// Whoever comes first, to observe or to post, makes it for all.
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

// Only a file that is made here is given its mode: one that is there already may be another user's
// link to anything. It is opened without O_CREAT too, which kernels with fs.protected_regular
// refuse for another user's file.
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

  // Serves the observers, or waits for good where there is nothing to serve.
  [[noreturn]] void serve() {
    for (;;) {
      if (descriptor_ < 0 || !serveOnce()) pause();
    }
  }

 private:
  // Posts that were made between two looks come as one.
  struct Seen {
    std::set<std::string, std::less<>> files;
    bool all = false;
    bool directory_gone = false;
  };

  // Watching an inode anew gives the watch it has already, and only that one counts.
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
      // What was posted into the new directory before it was watched could not be seen.
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
  // Closing is the post.
  return Descriptor(openForPosting(directory.get(), fileName(name))).get() >= 0;
}

// Nothing is delivered to the main thread of Linux but notifications.
void runMainLoop() {
  observers().serve();
}

}  // namespace vorlatch::platform
