#include "tests/blackbox/directory_watch.h"

#include <poll.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <gtest/gtest.h>

namespace vorlatch {

Descriptor watchDirectory(const std::string& directory, std::uint32_t events) {
  Descriptor watch(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  EXPECT_GE(inotify_add_watch(watch.get(), directory.c_str(), events), 0)
      << directory << ": " << std::strerror(errno);
  return watch;
}

void takeEvents(const Descriptor& watch,
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

// Opening is watched for so that two reads in a row do not come as one event.
DirectoryWatch::DirectoryWatch(const std::string& directory)
    : changes_(watchDirectory(directory, IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVE)),
      reads_(watchDirectory(directory, IN_OPEN | IN_CLOSE_NOWRITE)) {}

bool DirectoryWatch::waitForChange(Clock::time_point deadline, int process_end) {
  return waitFor(changes_, deadline, process_end);
}

bool DirectoryWatch::waitForRead(Clock::time_point deadline, int process_end) {
  return waitFor(reads_, deadline, process_end);
}

bool DirectoryWatch::waitFor(const Descriptor& watch, Clock::time_point deadline, int process_end) {
  std::array<pollfd, 2> waiting{pollfd{.fd = watch.get(), .events = POLLIN, .revents = 0},
                                pollfd{.fd = process_end, .events = POLLIN, .revents = 0}};
  const bool happened = poll(waiting.data(), waiting.size(), millisecondsUntil(deadline)) > 0 &&
                        waiting[0].revents != 0;
  takeBoth();
  return happened;
}

bool DirectoryWatch::staysQuietFor(std::chrono::milliseconds duration) {
  takeBoth();
  const auto deadline = Clock::now() + duration;
  std::array<pollfd, 2> waiting{pollfd{.fd = changes_.get(), .events = POLLIN, .revents = 0},
                                pollfd{.fd = reads_.get(), .events = POLLIN, .revents = 0}};
  return poll(waiting.data(), waiting.size(), millisecondsUntil(deadline)) == 0;
}

int DirectoryWatch::readsOf(const std::string& name) {
  takeBoth();
  return read_counts_[name];
}

int DirectoryWatch::removalsOf(const std::string& prefix) {
  takeBoth();
  int count = 0;
  for (const auto& [name, removals] : removal_counts_) {
    if (name.starts_with(prefix)) count += removals;
  }
  return count;
}

void DirectoryWatch::takeBoth() {
  const auto count = [](const Descriptor& watch, std::uint32_t counted, auto& counts) {
    takeEvents(watch, [&](std::uint32_t mask, const std::string& name) {
      EXPECT_EQ(mask & IN_Q_OVERFLOW, 0U) << "events were lost";
      if ((mask & counted) != 0) ++counts[name];
    });
  };
  count(changes_, IN_DELETE, removal_counts_);
  count(reads_, IN_CLOSE_NOWRITE, read_counts_);
}

}  // namespace vorlatch
