#include "tests/blackbox/directory_watch.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include <gtest/gtest.h>

namespace vorlatch {
namespace {

int watch(const std::string& directory, std::uint32_t events) {
  const int instance = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  EXPECT_GE(inotify_add_watch(instance, directory.c_str(), events), 0)
      << directory << ": " << std::strerror(errno);
  return instance;
}

bool waitFor(int instance, Clock::time_point deadline, int process_end) {
  std::array<pollfd, 2> waiting{pollfd{.fd = instance, .events = POLLIN, .revents = 0},
                                pollfd{.fd = process_end, .events = POLLIN, .revents = 0}};
  return poll(waiting.data(), waiting.size(), millisecondsUntil(deadline)) > 0 &&
         waiting[0].revents != 0;
}

}  // namespace

// Opening is watched for so that two reads in a row do not come as one event.
DirectoryWatch::DirectoryWatch(const std::string& directory)
    : changes_(watch(directory, IN_MODIFY | IN_ATTRIB | IN_CREATE | IN_DELETE | IN_MOVE)),
      reads_(watch(directory, IN_OPEN | IN_CLOSE_NOWRITE)) {}

bool DirectoryWatch::waitForChange(Clock::time_point deadline, int process_end) {
  const bool happened = waitFor(changes_.number(), deadline, process_end);
  drainBoth();
  return happened;
}

bool DirectoryWatch::waitForRead(Clock::time_point deadline, int process_end) {
  const bool happened = waitFor(reads_.number(), deadline, process_end);
  drainBoth();
  return happened;
}

bool DirectoryWatch::staysQuietFor(std::chrono::milliseconds duration) {
  drainBoth();
  const auto deadline = Clock::now() + duration;
  std::array<pollfd, 2> waiting{
      pollfd{.fd = changes_.number(), .events = POLLIN, .revents = 0},
      pollfd{.fd = reads_.number(), .events = POLLIN, .revents = 0},
  };
  return poll(waiting.data(), waiting.size(), millisecondsUntil(deadline)) == 0;
}

int DirectoryWatch::readsOf(const std::string& name) {
  drainBoth();
  return read_counts_[name];
}

int DirectoryWatch::removalsOf(const std::string& prefix) {
  drainBoth();
  int count = 0;
  for (const auto& [name, removals] : removal_counts_) {
    if (name.starts_with(prefix)) count += removals;
  }
  return count;
}

void DirectoryWatch::drain(const Descriptor& instance, std::uint32_t counted, Counts& counts) {
  alignas(inotify_event) std::array<char, 65536> buffer{};
  while (true) {
    const ssize_t length = read(instance.number(), buffer.data(), buffer.size());
    if (length <= 0) return;
    std::string_view events(buffer.data(), static_cast<std::size_t>(length));
    while (events.size() >= sizeof(inotify_event)) {
      inotify_event event{};
      std::memcpy(&event, events.data(), sizeof(event));
      EXPECT_EQ(event.mask & IN_Q_OVERFLOW, 0U) << "events were lost";
      const std::string_view padded = events.substr(sizeof(event), event.len);
      if ((event.mask & counted) != 0) ++counts[std::string(padded.substr(0, padded.find('\0')))];
      events.remove_prefix(sizeof(event) + event.len);
    }
  }
}

void DirectoryWatch::drainBoth() {
  drain(changes_, IN_DELETE, removal_counts_);
  drain(reads_, IN_CLOSE_NOWRITE, read_counts_);
}

}  // namespace vorlatch
