// Connections that stay: the live status, and when the server ends.
#include <vector>

#include <gtest/gtest.h>

#include "tests/web/server_process.h"

namespace vorlatch::tests {
namespace {

web::Limits quick() {
  web::Limits limits = ServerProcess::patient();
  limits.look_interval = 5ms;
  limits.comment_interval = 20ms;
  return limits;
}

std::string eventsRequest(const std::string& key) {
  return "GET /api/events?lang=en HTTP/1.1\r\nHost: localhost\r\nCookie: vorlatch=" + key +
         "\r\n\r\n";
}

TEST(ServerEvents, FollowAnEdit) {
  PageStory story;
  const ServerProcess server(quick());
  RawClient page = server.connect();
  page.send(eventsRequest(story.key));
  const std::string first = page.readUntil("\n\n");
  EXPECT_EQ(statusOf(first), "200 OK");
  EXPECT_NE((first + page.readUntil("\n\n")).find("\"targets\": []"), std::string::npos);
  story.writeTargets({{"kbd", Dictionary{{"NiceValue", 5}}}});
  const std::string change = page.readUntil("\"target\": \"kbd\"");
  EXPECT_NE(change.find("event: status\ndata: {"), std::string::npos) << change;
  EXPECT_NE(page.readUntil(":\n\n").find(":\n\n"), std::string::npos);
}

TEST(ServerEvents, NeedTheKeyAllTheTime) {
  PageStory story;
  const ServerProcess server(quick());
  EXPECT_EQ(statusOf(server.answerTo(eventsRequest("no"))), "401 Unauthorized");
  RawClient page = server.connect();
  page.send(eventsRequest(story.key));
  page.readUntil("event: status");
  control::replaceAccessKey();
  page.readAll();  // fails the test if it does not end
  EXPECT_EQ(statusOf(server.answerTo(eventsRequest(story.key))), "401 Unauthorized");
}

// More pages than there may be connections: the oldest end, the others go on.
TEST(ServerEvents, OutliveManyPages) {
  PageStory story;
  const ServerProcess server(quick());
  std::vector<RawClient> pages;
  for (int i = 0; i < 100; ++i) {
    pages.push_back(server.connect());
    pages.back().send(eventsRequest(story.key));
    EXPECT_NE(pages.back().readUntil("event: status").find("event: status"), std::string::npos);
  }
  pages.front().readAll();
  story.writeTargets({{"kbd", Dictionary{{"NiceValue", 5}}}});
  EXPECT_NE(pages.back().readUntil("kbd").find("kbd"), std::string::npos);
}

TEST(ServerEvents, KeepAServerAliveThatEndsWhenIdle) {
  PageStory story;
  web::Limits limits = quick();
  limits.comment_interval = 400ms;
  limits.idle = 1s;
  ServerProcess server(limits);
  {
    RawClient page = server.connect();
    page.send(eventsRequest(story.key));
    for (int i = 0; i < 3; ++i) {
      EXPECT_NE(page.readUntil(":\n\n").find(":\n\n"), std::string::npos);
    }
  }
  EXPECT_EQ(server.awaitEnd(), 0);
}

TEST(ServerEvents, EndAServerThatNobodyVisits) {
  PageStory story;
  web::Limits limits = quick();
  limits.idle = 10ms;
  ServerProcess server(limits);
  EXPECT_EQ(server.awaitEnd(), 0);
}

}  // namespace
}  // namespace vorlatch::tests
