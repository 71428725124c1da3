#include "platform/notifications.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/conformance/ear.h"

namespace vorlatch::conformance {
namespace {

TEST(Notifications, AreHeardByEachObserverEachTime) {
  const Ear& first = ear("Shared");
  const Ear& second = ear("Shared");
  // Between observing and the main loop.
  EXPECT_TRUE(first.post());
  startMainLoop();
  EXPECT_TRUE(first.hearsAtLeast(1));
  EXPECT_TRUE(first.hearsAPost());
  EXPECT_TRUE(second.hearsAtLeast(2));
  EXPECT_EQ(first.heard(), 2);
}

TEST(Notifications, OfABurstAreHeardOnceToAsPosted) {
  const Ear& apply = ear("Apply");
  const Ear& end = ear("End");
  startMainLoop();
  for (int i = 0; i < 500; ++i) EXPECT_TRUE(apply.post());
  EXPECT_TRUE(apply.hearsAtLeast(1));
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_LE(apply.heard(), 500);
}

TEST(Notifications, AreHeardUnderTheirOwnNameAlone) {
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

TEST(Notifications, AreLostWithoutAnObserver) {
  EXPECT_TRUE(platform::postNotification(ownName("Early").c_str()));
  const Ear& early = ear("Early");
  const Ear& end = ear("End");
  startMainLoop();
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_TRUE(end.hearsAPost());
  EXPECT_EQ(early.heard(), 0);
}

}  // namespace
}  // namespace vorlatch::conformance
