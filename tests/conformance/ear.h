// Who listens to the notifications of the platform under test.
#pragma once

#include <unistd.h>

#include <cstdint>
#include <string>

#include "platform/notifications.h"
#include "tests/conformance/driver.h"

namespace vorlatch::conformance {

// Cases that run at the same time have names of their own.
inline std::string ownName(const std::string& name) {
  return std::to_string(getpid()) + "/" + name;
}

// Counts what is heard of one name.
class Ear {
 public:
  explicit Ear(const std::string& name) : name_(ownName(name)) {
    platform::observeNotification(name_.c_str(), [this] { changed([this] { ++heard_; }); });
  }
  [[nodiscard]] const std::string& name() const { return name_; }
  [[nodiscard]] bool post() const { return platform::postNotification(name_.c_str()); }
  [[nodiscard]] bool hearsAPost() const {
    const int before = heard();
    return post() && hearsAtLeast(before + 1);
  }
  [[nodiscard]] bool hearsAtLeast(int count) const {
    constexpr std::uint64_t kLong = 60'000'000'000;
    return runUntil([&] { return heard_ >= count; }, kLong);
  }
  [[nodiscard]] int heard() const {
    int heard = 0;
    changed([&] { heard = heard_; });
    return heard;
  }

 private:
  const std::string name_;
  int heard_ = 0;
};

// Handlers are called for the life of the process, so ears live as long.
inline const Ear& ear(const char* name) {
  return *new Ear(name);
}

}  // namespace vorlatch::conformance
