#include "tests/soak/onlooker.h"

#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <optional>
#include <string_view>
#include <utility>

#include <gtest/gtest.h>

#include "platform/property_list.h"
#include "tests/blackbox/installation.h"
#include "tests/support/files.h"

namespace vorlatch {
namespace {

constexpr std::size_t kFindingsMax = 5;
constexpr int kBetweenLooksMs = 1;

}  // namespace

Onlooker::Onlooker(const std::string& directory, std::vector<std::string> names)
    : directory_(directory),
      names_(std::move(names)),
      writes_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  EXPECT_GE(inotify_add_watch(writes_.number(), directory.c_str(), IN_MODIFY), 0);
  thread_ = std::thread([this] {
    while (!ends_) look();
  });
}

void Onlooker::stop() {
  ends_ = true;
  if (thread_.joinable()) thread_.join();
}

void Onlooker::look() {
  for (const std::string& name : names_) {
    const std::string path = directory_ + "/" + name;
    if (!seen_.contains(name) && !std::filesystem::exists(path)) continue;
    seen_.insert(name);
    const std::string bytes = tests::readAll(path);
    const std::optional<plist::Value> value = platform::parsePropertyList(bytes);
    ++looks_;
    if (!value || value->as<plist::Dictionary>() == nullptr) find(name + ": " + bytes);
  }
  readEvents();
  poll(nullptr, 0, kBetweenLooksMs);
}

// A reader rarely comes at the moment at which a file is half written; the kernel tells of each.
void Onlooker::readEvents() {
  alignas(inotify_event) std::array<char, 16384> buffer{};
  ssize_t length = 0;
  while ((length = read(writes_.number(), buffer.data(), buffer.size())) > 0) {
    std::string_view events(buffer.data(), static_cast<std::size_t>(length));
    while (!events.empty()) {
      inotify_event event{};
      std::memcpy(&event, events.data(), sizeof(event));
      const std::string_view padded_name = events.substr(sizeof(event), event.len);
      const std::string name(padded_name.substr(0, padded_name.find('\0')));
      events.remove_prefix(sizeof(event) + event.len);
      const bool is_watched = std::find(names_.begin(), names_.end(), name) != names_.end();
      if ((event.mask & IN_Q_OVERFLOW) != 0) find("events were lost");
      if (is_watched) find(name + " was written to");
    }
  }
}

void Onlooker::find(const std::string& finding) {
  if (findings_.size() < kFindingsMax) findings_.push_back(finding);
}

}  // namespace vorlatch
