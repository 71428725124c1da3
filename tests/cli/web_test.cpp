// vorlatchctl web: the address of the page, and its key. On the simulated device, the system starts
// the server.
#include <gtest/gtest.h>

#include "cli/qr_code.h"
#include "control/access_key.h"
#include "tests/cli/control_run.h"

namespace vorlatch::tests {
namespace {

constexpr const char* kOpenIt =
    "open it in a browser on this device; whoever has the address may do there what vorlatchctl "
    "does\n";

TEST(Web, PrintsTheAddressWithTheKey) {
  ControlStory story;
  const std::string answer = story.answer("web");
  const std::optional<std::string> key = control::storedAccessKey();
  ASSERT_TRUE(key);
  EXPECT_EQ(answer, "http://127.0.0.1:8717/#key=" + *key + "\n" + kOpenIt);
  EXPECT_EQ(story.answer("web"), answer);
  EXPECT_EQ(story.answer("web --port 80 --json"),
            pretty(R"({"address": "http://127.0.0.1:80/#key=)" + *key + "\"}"));
}

// The phone's camera reads it from the terminal of a computer.
TEST(Web, ShowsACodeOnATerminalWithRoomForIt) {
  ControlStory story;
  const std::string text = story.answer("web");
  story.columns = cli::kQrColumns;
  EXPECT_EQ(story.answer("web"), cli::qrCode(text.substr(0, text.find('\n'))) + text);
  story.columns = cli::kQrColumns - 1;
  EXPECT_EQ(story.answer("web"), text);
}

TEST(Web, ReplacesTheKey) {
  ControlStory story;
  const std::string before = story.answer("web");
  const std::string after = story.answer("web --new-key");
  EXPECT_NE(after, before);
  EXPECT_EQ(after,
            "http://127.0.0.1:8717/#key=" + control::storedAccessKey().value() + "\n" + kOpenIt);
}

TEST(Web, RefusesPortsThatAreNone) {
  ControlStory story;
  EXPECT_EQ(story.answer("web --port 0"),
            "err: vorlatchctl: --port takes a number from 1 to 65535, not \"0\"\nexit 2\n");
  EXPECT_EQ(story.answer("web --port 65536"),
            "err: vorlatchctl: --port takes a number from 1 to 65535, not \"65536\"\nexit 2\n");
  EXPECT_EQ(control::storedAccessKey(), std::nullopt);
}

}  // namespace
}  // namespace vorlatch::tests
