// A program that reads the daemon's files all the time, as any other may.
#pragma once

#include <poll.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/property_list.h"
#include "tests/blackbox/directory_watch.h"
#include "tests/support/files.h"

namespace vorlatch {

class Onlooker {
 public:
  // Looks at these files of one directory: from when one is there it always is, it holds a whole
  // property list, and it is replaced, never written to.
  Onlooker(std::string directory, std::vector<std::string> names)
      : directory_(std::move(directory)),
        names_(std::move(names)),
        writes_(watchDirectory(directory_, IN_MODIFY)),
        thread_([this] {
          while (!ends_) look();
        }) {}
  Onlooker(const Onlooker&) = delete;
  Onlooker& operator=(const Onlooker&) = delete;
  ~Onlooker() { stop(); }

  // Ends it; only then may looks and findings be asked.
  void stop() {
    ends_ = true;
    if (thread_.joinable()) thread_.join();
  }
  [[nodiscard]] int looks() const { return looks_; }
  // What was not so; the first few.
  [[nodiscard]] const std::vector<std::string>& findings() const { return findings_; }

 private:
  void look() {
    for (const std::string& name : names_) {
      const std::string path = directory_ + "/" + name;
      if (!seen_.contains(name) && !std::filesystem::exists(path)) continue;
      seen_.insert(name);
      const std::string bytes = tests::readAll(path);
      const auto value = platform::parsePropertyList(bytes);
      ++looks_;
      if (!value || value->as<plist::Dictionary>() == nullptr) find(name + ": " + bytes);
    }
    // A reader rarely comes at the moment at which a file is half written; the kernel tells of
    // each.
    takeEvents(writes_, [this](std::uint32_t mask, const std::string& name) {
      if ((mask & IN_Q_OVERFLOW) != 0) find("events were lost");
      if (std::find(names_.begin(), names_.end(), name) != names_.end()) {
        find(name + " was written to");
      }
    });
    poll(nullptr, 0, 1);
  }

  void find(const std::string& finding) {
    constexpr std::size_t kFindingsMax = 5;
    if (findings_.size() < kFindingsMax) findings_.push_back(finding);
  }

  const std::string directory_;
  const std::vector<std::string> names_;
  const Descriptor writes_;
  std::atomic<bool> ends_ = false;
  std::set<std::string> seen_;
  int looks_ = 0;
  std::vector<std::string> findings_;
  std::thread thread_;
};

}  // namespace vorlatch
