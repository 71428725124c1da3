// Who may: each header that guards the server, alone and together.
#include "web/gate.h"

#include <gtest/gtest.h>

namespace vorlatch::tests {
namespace {

using web::Entry;
using web::Request;

const std::string kKey = "0123456789abcdef0123456789abcdef";
const std::string kCookie = "vorlatch=" + kKey;
const std::string kOtherKey = "0123456789abcdef0123456789abcdee";

Entry entryOf(const Request& request) {
  return web::judge(request, {.method = "POST", .needs_key = true}, kKey);
}

// A request that may enter.
Request welcome() {
  return {.method = "POST", .hosts = {"127.0.0.1:8717"}, .cookies = {kCookie}};
}

TEST(Gate, KnowsThisMachinesNames) {
  const std::vector<std::pair<std::vector<std::string>, bool>> cases{
      {{"127.0.0.1"}, true},
      {{"localhost"}, true},
      {{"127.0.0.1:8717"}, true},
      {{"localhost:1"}, true},
      {{"127.0.0.1:65535"}, true},
      {{}, false},
      {{""}, false},
      {{"127.0.0.1", "127.0.0.1"}, false},
      {{"127.0.0.1", "evil.example"}, false},
      {{"evil.example"}, false},
      {{"127.0.0.1.evil.example"}, false},
      {{"localhost.evil.example"}, false},
      {{"evil.example:8717"}, false},
      {{"127.0.0.1:"}, false},
      {{"127.0.0.1:x"}, false},
      {{"127.0.0.1:8717:1"}, false},
      {{"127.0.0.1:871700"}, false},
      {{"127.0.0.1:-1"}, false},
      {{"127.0.0.1@evil.example"}, false},
      {{"127.0.0.1 "}, false},
      {{"127.0.0.10"}, false},
      {{"127.0.0.2"}, false},
      {{"0.0.0.0"}, false},
      {{"[::1]"}, false},
      {{"LOCALHOST"}, false},
      {{"localhost."}, false},
      {{"http://127.0.0.1"}, false}};
  for (const auto& [hosts, may_enter] : cases) {
    Request request = welcome();
    request.hosts = hosts;
    EXPECT_EQ(entryOf(request), may_enter ? Entry::Granted : Entry::WrongHost)
        << testing::PrintToString(hosts);
  }
}

TEST(Gate, TakesOnlyItsOwnOrigin) {
  const std::vector<std::pair<std::vector<std::string>, bool>> cases{
      {{}, true},
      {{"http://127.0.0.1:8717"}, true},
      {{""}, false},
      {{"null"}, false},
      {{"http://127.0.0.1"}, false},
      {{"http://127.0.0.1:8718"}, false},
      {{"http://localhost:8717"}, false},
      {{"https://127.0.0.1:8717"}, false},
      {{"http://127.0.0.1:8717/"}, false},
      {{"http://127.0.0.1:8717.evil.example"}, false},
      {{"http://evil.example"}, false},
      {{"http://127.0.0.1:8717", "http://127.0.0.1:8717"}, false},
      {{"http://127.0.0.1:8717", "http://evil.example"}, false}};
  for (const auto& [origins, may_enter] : cases) {
    Request request = welcome();
    request.origins = origins;
    EXPECT_EQ(entryOf(request), may_enter ? Entry::Granted : Entry::WrongOrigin)
        << testing::PrintToString(origins);
  }
}

TEST(Gate, FindsTheKeyAmongCookies) {
  const std::vector<std::pair<std::vector<std::string>, bool>> cases{
      {{kCookie}, true},
      {{"a=1; " + kCookie + "; b=2"}, true},
      {{"vorlatch=" + kOtherKey + "; " + kCookie}, true},
      {{"a=1", kCookie}, true},
      {{";;  " + kCookie + "\t;"}, true},
      {{}, false},
      {{""}, false},
      {{"vorlatch"}, false},
      {{"vorlatch="}, false},
      {{"vorlatch=" + kOtherKey}, false},
      {{"vorlatch=" + kKey.substr(1)}, false},
      {{kCookie + "0"}, false},
      {{"vorlatch=\"" + kKey + "\""}, false},
      {{"Vorlatch=" + kKey}, false},
      {{"x" + kCookie}, false},
      {{"a=" + kCookie}, false},
      {{kKey}, false},
      {{kCookie.substr(0, 20), kCookie.substr(20)}, false}};
  for (const auto& [cookies, may_enter] : cases) {
    Request request = welcome();
    request.cookies = cookies;
    EXPECT_EQ(entryOf(request), may_enter ? Entry::Granted : Entry::NoKey)
        << testing::PrintToString(cookies);
  }
}

TEST(Gate, TakesTheKeyInAuthorization) {
  const std::vector<std::pair<std::string, bool>> cases{{"Bearer " + kKey, true},
                                                        {"Bearer " + kOtherKey, false},
                                                        {"Bearer ", false},
                                                        {kKey, false},
                                                        {"Basic " + kKey, false}};
  for (const auto& [authorization, may_enter] : cases) {
    Request request = welcome();
    request.cookies.clear();
    request.authorizations = {authorization};
    EXPECT_EQ(entryOf(request), may_enter ? Entry::Granted : Entry::NoKey) << authorization;
  }
}

TEST(Gate, NeedsTheKeyAndTheMethodOfTheDoor) {
  const web::Door open{.method = "GET", .needs_key = false};
  const web::Door locked{.method = "POST", .needs_key = true};
  EXPECT_EQ(web::judge(welcome(), open, kKey), Entry::WrongMethod);
  EXPECT_EQ(web::judge(welcome(), locked, std::nullopt), Entry::NoKey);
  EXPECT_EQ(web::judge(welcome(), locked, ""), Entry::NoKey);
  Request request = welcome();
  request.cookies.clear();
  for (const char* method : {"HEAD", "PUT", "OPTIONS", "get", ""}) {
    request.method = method;
    EXPECT_EQ(web::judge(request, open, kKey), Entry::WrongMethod) << method;
  }
  request.method = "GET";
  EXPECT_EQ(web::judge(request, open, std::nullopt), Entry::Granted);
}

// A refusal of the place comes first: it tells an attacker nothing about keys.
TEST(Gate, JudgesTheHostBeforeTheKey) {
  Request request = welcome();
  request.cookies.clear();
  request.hosts = {"evil.example"};
  request.origins = {"http://evil.example"};
  EXPECT_EQ(entryOf(request), Entry::WrongHost);
  request.hosts = {"127.0.0.1"};
  EXPECT_EQ(entryOf(request), Entry::WrongOrigin);
}

}  // namespace
}  // namespace vorlatch::tests
