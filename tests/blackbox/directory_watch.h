// What happens in a directory, as the kernel reports it.
#pragma once

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include <gtest/gtest.h>

#include "tests/blackbox/processes.h"

namespace vorlatch {

// Watches the directory for the events; fails the test when that cannot be done.
inline Descriptor watchDirectory(const std::string& directory, std::uint32_t events) {
  Descriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  EXPECT_GE(inotify_add_watch(watch.get(), directory.c_str(), events), 0)
      << directory << ": " << std::strerror(errno);
  return watch;
}

// Takes the events so far, each with its mask and the name of its file.
inline void takeEvents(
    const Descriptor& watch,
    const std::function<void(std::uint32_t mask, const std::string& name)>& take) {
  alignas(inotify_event) std::array<char, 65536> buffer{};
  ssize_t length = 0;
  while ((length = read(watch.get(), buffer.data(), buffer.size())) > 0) {
    std::string_view events(buffer.data(), static_cast<std::size_t>(length));
    while (events.size() >= sizeof(inotify_event)) {
      inotify_event event{};
      std::memcpy(&event, events.data(), sizeof(event));
      const std::string_view padded = events.substr(sizeof(event), event.len);
      take(event.mask, std::string(padded.substr(0, padded.find('\0'))));
      events.remove_prefix(sizeof(event) + event.len);
    }
  }
}

// Counts how often each file of a directory is read.
class DirectoryWatch {
 public:
  explicit DirectoryWatch(const std::string& directory)
      : events_(watchDirectory(directory, IN_ALL_EVENTS)) {}

  // How often somebody has read the file and closed it so far.
  int readsOf(const std::string& name) {
    takeEvents(events_, [this](std::uint32_t mask, const std::string& file) {
      EXPECT_EQ(mask & IN_Q_OVERFLOW, 0U) << "events were lost";
      if ((mask & IN_CLOSE_NOWRITE) != 0) ++reads_[file];
    });
    return reads_[name];
  }

  // Whether nothing at all happens in the directory for that long.
  bool staysQuietFor(std::chrono::milliseconds duration) {
    readsOf("");
    pollfd event{.fd = events_.get(), .events = POLLIN, .revents = 0};
    return poll(&event, 1, static_cast<int>(duration.count())) == 0;
  }

 private:
  const Descriptor events_;
  std::map<std::string, int> reads_;
};

}  // namespace vorlatch
