// The server on a real socket: what a page needs of it, and what strangers try.
#include "web/server.h"

#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <vector>

#include <gtest/gtest.h>

#include "tests/web/server_process.h"

namespace vorlatch::tests {
namespace {

const std::string kGetPage = "GET / HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";
const std::string kOk = "200 OK";

std::string postTo(const std::string& path, const std::string& cookie, const std::string& body) {
  return "POST " + path +
         " HTTP/1.1\r\nHost: localhost\r\nOrigin: http://localhost\r\nCookie: " + cookie +
         "\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" + body;
}

std::size_t openDescriptorsOf(pid_t pid) {
  const std::filesystem::directory_iterator descriptors("/proc/" + std::to_string(pid) + "/fd");
  return static_cast<std::size_t>(std::distance(begin(descriptors), end(descriptors)));
}

TEST(Server, AnswersOverOneConnection) {
  PageStory story;
  const ServerProcess server;
  RawClient client = server.connect();
  for (int i = 0; i < 3; ++i) {
    client.send(kGetPage);
    const std::string answer = client.readAnswer();
    EXPECT_EQ(statusOf(answer), kOk);
    EXPECT_EQ(bodyOf(answer), "packed page");
  }
  client.send(kGetPage + "GET /app.js HTTP/1.1\r\nHost: localhost\r\n\r\n" + kGetPage);
  EXPECT_EQ(bodyOf(client.readAnswer()), "packed page");
  EXPECT_EQ(bodyOf(client.readAnswer()), "code");
  EXPECT_EQ(bodyOf(client.readAnswer()), "packed page");
}

TEST(Server, AnswersAQuestionForTheHeadWithoutABody) {
  PageStory story;
  const ServerProcess server;
  RawClient client = server.connect();
  client.send("HEAD / HTTP/1.1\r\nHost: localhost\r\n\r\n" + kGetPage);
  const std::string answers = client.readUntil("packed page");
  const std::size_t end = answers.find("\r\n\r\n") + 4;
  EXPECT_EQ(statusOf(answers), "405 Method Not Allowed");
  EXPECT_EQ(statusOf(answers.substr(end)), kOk);
}

TEST(Server, LogsInAndEditsTheFile) {
  PageStory story;
  const ServerProcess server;
  RawClient client = server.connect();
  client.send(postTo("/api/command", "", R"({"words": ["list"]})"));
  EXPECT_EQ(statusOf(client.readAnswer()), "401 Unauthorized");
  client.send(postTo("/api/login", "", R"({"key": "no"})"));
  EXPECT_EQ(statusOf(client.readAnswer()), "403 Forbidden");
  client.send(postTo("/api/login", "", R"({"key": ")" + story.key + "\"}"));
  const std::string login = client.readAnswer();
  EXPECT_EQ(statusOf(login), kOk);
  const std::size_t begin = login.find("Set-Cookie: ") + 12;
  const std::string cookie = login.substr(begin, login.find(';', begin) - begin);
  EXPECT_EQ(cookie, "vorlatch=" + story.key);
  const std::string folder = nlohmann::json::parse(bodyOf(login)).at("folder");
  const auto run = [&](const std::string& words) {
    client.send(postTo(folder + "api/command", cookie, R"({"words": [)" + words + "]}"));
    return bodyOf(client.readAnswer());
  };
  EXPECT_TRUE(run(R"("set", "kbd", "NiceValue=5")").starts_with(R"({"status":0,)"));
  EXPECT_NE(readAll(story.preferencesFile()).find("<key>kbd</key>"), std::string::npos);
  const std::string before = readAll(story.preferencesFile());
  EXPECT_TRUE(run(R"("set", "SpringBoard", "MemLimitActive=3000")").starts_with(R"({"status":2,)"));
  EXPECT_EQ(readAll(story.preferencesFile()), before);
}

TEST(Server, TakesAByteAtATime) {
  PageStory story;
  const ServerProcess server;
  RawClient client = server.connect();
  const std::string request = postTo("/api/command", "vorlatch=" + story.key, R"({"words": []})");
  for (const char& byte : request) client.send({&byte, 1});
  client.finish();
  EXPECT_EQ(statusOf(client.readAll()), "403 Forbidden");
}

TEST(Server, OutlivesRequestsThatAreCutShort) {
  PageStory story;
  const ServerProcess server;
  const std::string request = postTo("/api/command", "vorlatch=" + story.key, R"({"words": []})");
  for (std::size_t size = 0; size < request.size(); ++size) {
    EXPECT_EQ(server.answerTo(request.substr(0, size)), "") << size;
  }
  EXPECT_EQ(statusOf(server.answerTo(request)), "403 Forbidden");
}

TEST(Server, RefusesWhatItCannotRead) {
  PageStory story;
  const ServerProcess server;
  const std::string begin = "POST /api/login HTTP/1.1\r\nHost: localhost\r\n";
  const std::vector<std::pair<std::string, std::string>> cases{
      {"\x16\x03\x01\x02 as TLS begins\r\n\r\n", "400 Bad Request"},
      {begin + "Content-Length: 2\r\nContent-Length: 3\r\n\r\n{} ", "400 Bad Request"},
      {begin + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n{}", "400 Bad Request"},
      {begin + "Content-Length: 99999999\r\n\r\n", "413 Content Too Large"},
      {begin + "Transfer-Encoding: chunked\r\n\r\n2\r\n{}\r\n0\r\n\r\n", "411 Length Required"},
      {"GET /" + std::string(10'000, '.') + " HTTP/1.1\r\n\r\n",
       "431 Request Header Fields Too Large"},
      {"GET / HTTP/1.1\r\n\r\n", "403 Forbidden"},
      {"GET / HTTP/1.1\r\nHost: evil.example\r\n\r\n", "403 Forbidden"},
      {"GET / HTTP/1.1\r\nHost: localhost\r\nOrigin: null\r\n\r\n", "403 Forbidden"},
      {"GET /../../etc/passwd HTTP/1.1\r\nHost: localhost\r\n\r\n", "404 Not Found"},
      {"GET http://localhost/ HTTP/1.1\r\nHost: localhost\r\n\r\n", "404 Not Found"},
      {"OPTIONS * HTTP/1.1\r\nHost: localhost\r\n\r\n", "404 Not Found"},
      {"CONNECT localhost:22 HTTP/1.1\r\nHost: localhost\r\n\r\n", "404 Not Found"},
      {"DELETE / HTTP/1.1\r\nHost: localhost\r\n\r\n", "405 Method Not Allowed"}};
  for (const auto& [request, status] : cases) {
    EXPECT_EQ(statusOf(server.answerTo(request)), status) << request;
  }
}

TEST(Server, EndsAConnectionOfAMillionHeaders) {
  PageStory story;
  const ServerProcess server;
  RawClient client = server.connect();
  client.send("GET / HTTP/1.1\r\n");
  std::string headers;
  for (int i = 0; i < 1000; ++i) headers += "A: b\r\n";
  for (int i = 0; i < 1000 && client.send(headers); ++i) {
  }
  client.finish();
  EXPECT_EQ(statusOf(client.readAll()), "431 Request Header Fields Too Large");
  EXPECT_EQ(statusOf(server.answerTo(kGetPage)), kOk);
}

TEST(Server, ServesTenThousandConnectionsInTurn) {
  PageStory story;
  const ServerProcess server;
  EXPECT_EQ(statusOf(server.answerTo(kGetPage)), kOk);
  const std::size_t before = openDescriptorsOf(server.pid());
  for (int i = 0; i < 10'000; ++i) ASSERT_EQ(statusOf(server.answerTo(kGetPage)), kOk) << i;
  // The last connection may still be open.
  EXPECT_LE(openDescriptorsOf(server.pid()), before + 1);
}

TEST(Server, StaysReachableBehindIdleConnections) {
  PageStory story;
  const ServerProcess server;
  std::vector<RawClient> idle;
  for (int i = 0; i < 200; ++i) {
    idle.push_back(server.connect());
    idle.back().send("GET / HTTP/1.1\r\n");
  }
  RawClient client = server.connect();
  client.send(kGetPage);
  EXPECT_EQ(statusOf(client.readAnswer()), kOk);
  EXPECT_LE(openDescriptorsOf(server.pid()), web::Limits{}.connections + 20);
  // The oldest had to go.
  EXPECT_EQ(idle.front().readAll(), "");
  idle.back().send("Host: localhost\r\n\r\n");
  EXPECT_EQ(statusOf(idle.back().readAnswer()), kOk);
}

TEST(Server, AnswersTwoHundredAtOnce) {
  PageStory story;
  const ServerProcess server;
  std::vector<RawClient> clients;
  for (int i = 0; i < 200; ++i) {
    clients.push_back(server.connect());
    clients.back().send(kGetPage);
    clients.back().finish();
  }
  std::size_t answered = 0;
  for (RawClient& client : clients) {
    const std::string answer = client.readAll();
    // An older connection may have had to go, but no answer is cut.
    if (answer.empty()) continue;
    ++answered;
    EXPECT_EQ(statusOf(answer), kOk);
    EXPECT_EQ(bodyOf(answer), "packed page");
  }
  EXPECT_GE(answered, web::Limits{}.connections);
}

TEST(Server, EndsSlowConnections) {
  PageStory story;
  web::Limits limits = ServerProcess::patient();
  limits.request = 50ms;
  const ServerProcess server(limits);
  RawClient silent = server.connect();
  EXPECT_EQ(silent.readAll(), "");
  RawClient slow = server.connect();
  slow.send(kGetPage);
  EXPECT_EQ(statusOf(slow.readAnswer()), kOk);
  slow.send("GET / HTTP/1.1\r\nHost");
  EXPECT_EQ(slow.readAll(), "");
}

TEST(Server, BoundsTheRate) {
  PageStory story;
  web::Limits limits;
  limits.requests_per_second = 0;
  limits.request_burst = 3;
  const ServerProcess server(limits);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(statusOf(server.answerTo(kGetPage)), kOk);
  EXPECT_EQ(statusOf(server.answerTo(kGetPage)), "429 Too Many Requests");
  // The page itself can still ask.
  const std::string list =
      postTo("/api/command", "vorlatch=" + story.key, R"({"words": ["list"]})");
  for (int i = 0; i < 3; ++i) EXPECT_EQ(statusOf(server.answerTo(list)), kOk);
  EXPECT_EQ(statusOf(server.answerTo(list)), "429 Too Many Requests");
}

}  // namespace
}  // namespace vorlatch::tests
