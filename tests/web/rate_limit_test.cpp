// How many requests are admitted.
#include "web/rate_limit.h"

#include <gtest/gtest.h>

namespace vorlatch::tests {
namespace {

using namespace std::chrono_literals;

// How many of 1000 at once are admitted.
int admittedOf1000(web::RateLimit& limit, web::RateLimit::Clock::time_point now) {
  int admitted = 0;
  for (int i = 0; i < 1000; ++i) {
    if (limit.admit(now)) ++admitted;
  }
  return admitted;
}

TEST(RateLimit, AdmitsABurstAndThenTheAverage) {
  web::RateLimit limit(100, 200);
  const web::RateLimit::Clock::time_point start{1h};
  EXPECT_EQ(admittedOf1000(limit, start), 200);
  EXPECT_EQ(admittedOf1000(limit, start + 5ms), 0);
  EXPECT_EQ(admittedOf1000(limit, start + 1s), 100);
  EXPECT_EQ(admittedOf1000(limit, start + 1s + 500ms), 50);
  EXPECT_EQ(admittedOf1000(limit, start + 1h), 200);
}

}  // namespace
}  // namespace vorlatch::tests
