#include "platform/notifications.h"

#include <unistd.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

#include "tests/conformance/driver.h"

namespace {

using vorlatch::conformance::changed;
using vorlatch::conformance::runUntil;
using vorlatch::conformance::startMainLoop;
using vorlatch::platform::observeNotification;
using vorlatch::platform::postNotification;

constexpr std::uint64_t kLong = 60'000'000'000;

// Cases that run at the same time have names of their own.
std::string ownName(const std::string& name) {
  return std::to_string(getpid()) + "/" + name;
}

// Counts what is heard of one name.
class Ear {
 public:
  explicit Ear(const std::string& name) : name_(ownName(name)) {
    observeNotification(name_.c_str(), [this] { changed([this] { ++heard_; }); });
  }
  [[nodiscard]] bool post() const { return postNotification(name_.c_str()); }
  [[nodiscard]] bool hearsAPost() const {
    const int before = heard();
    return post() && runUntil([&] { return heard_ > before; }, kLong);
  }
  [[nodiscard]] bool hearsAtLeast(int count) const {
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
const Ear& ear(const char* name) {
  return *new Ear(name);
}

TEST(Notifications, APostIsHeardEachTime) {
  const Ear& apply = ear("Apply");
  startMainLoop();
  EXPECT_TRUE(apply.hearsAPost());
  EXPECT_TRUE(apply.hearsAPost());
  EXPECT_EQ(apply.heard(), 2);
}

TEST(Notifications, ABurstIsHeardAtLeastOnceAndNeverMoreOftenThanPosted) {
  const Ear& apply = ear("Apply");
  const Ear& end = ear("End");
  startMainLoop();
  for (int i = 0; i < 500; ++i) EXPECT_TRUE(apply.post());
  EXPECT_TRUE(apply.hearsAtLeast(1));
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_GE(apply.heard(), 1);
  EXPECT_LE(apply.heard(), 500);
}

TEST(Notifications, OnlyItsOwnNameIsHeard) {
  const Ear& one = ear("One/Two");
  const Ear& longer = ear("One/Two.more");
  const Ear& nested = ear("One");
  const Ear& other = ear("One%2fTwo");
  startMainLoop();
  EXPECT_TRUE(one.hearsAPost());
  EXPECT_TRUE(one.hearsAPost());
  EXPECT_EQ(longer.heard() + nested.heard() + other.heard(), 0);
  EXPECT_TRUE(other.hearsAPost());
  EXPECT_TRUE(nested.hearsAPost());
  EXPECT_EQ(one.heard(), 2);
}

TEST(Notifications, EachObserverOfANameHearsIt) {
  const Ear& first = ear("Shared");
  const Ear& second = ear("Shared");
  startMainLoop();
  EXPECT_TRUE(first.hearsAPost());
  EXPECT_TRUE(second.hearsAtLeast(1));
}

TEST(Notifications, APostThatNobodyObservedIsLost) {
  EXPECT_TRUE(postNotification(ownName("Early").c_str()));
  const Ear& early = ear("Early");
  const Ear& end = ear("End");
  startMainLoop();
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_EQ(early.heard(), 0);
}

TEST(Notifications, APostBetweenObservingAndTheMainLoopIsHeard) {
  const Ear& apply = ear("Apply");
  EXPECT_TRUE(apply.post());
  startMainLoop();
  EXPECT_TRUE(apply.hearsAtLeast(1));
}

}  // namespace
