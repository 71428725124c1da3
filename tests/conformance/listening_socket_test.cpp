#include "platform/listening_socket.h"

#include <gtest/gtest.h>

namespace vorlatch::conformance {
namespace {

TEST(ListeningSocket, IsNoneInAProgramThatAUserStarted) {
  EXPECT_TRUE(platform::activatedSockets().empty());
}

}  // namespace
}  // namespace vorlatch::conformance
