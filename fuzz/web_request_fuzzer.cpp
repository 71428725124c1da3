// Feeds the bytes of connections to the server's parser, and the requests in them to its routes.
// The input is a property list with the pieces in which the bytes of one connection arrive, or the
// bytes themselves. For @KEY@ in a piece stands the key.
#include <algorithm>
#include <filesystem>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "config/property_list_file.h"
#include "control/access_key.h"
#include "fuzz/support/fuzzer.h"
#include "fuzz/support/scene.h"
#include "fuzz/support/system_under_test.h"
#include "tests/web/page_story.h"
#include "web/request_reader.h"
#include "web/routes.h"

namespace vorlatch::fuzz {
namespace {

using plist::Array;
using plist::Value;
using web::Answer;
using web::Request;

constexpr std::string_view kKeyMark = "@KEY@";

// A device with the page, whose daemon's directory is as new for each input.
struct Site : tests::PageStory {
  Site() {
    device.is_tracing = false;
    launchDaemon();
  }

  void restore() const {
    const std::string key_file = file(control::kAccessKeyFileName);
    for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
      if (entry.path() != key_file) std::filesystem::remove_all(entry.path());
    }
    writePreferences(soundPreferences());
  }
  // The names and contents of all files of the daemon.
  [[nodiscard]] Files files() const {
    Files files;
    for (const auto& entry : std::filesystem::directory_iterator(file(""))) {
      files.emplace(entry.path().filename(), tests::readAll(entry.path()));
    }
    return files;
  }

  const web::Routes routes{tests::kPage};
};

Words piecesIn(std::string_view input, const std::string& key) {
  Words pieces;
  const std::optional<Value> list = propertyListIn(input);
  const auto* items = list ? list->as<Array>() : nullptr;
  if (items == nullptr) {
    pieces.emplace_back(input);
  } else {
    for (const Value& item : *items) pieces.push_back(bytesOf(item));
  }
  for (std::string& piece : pieces) {
    for (auto at = piece.find(kKeyMark); at != piece.npos; at = piece.find(kKeyMark, at)) {
      piece.replace(at, kKeyMark.size(), key);
    }
  }
  return pieces;
}

// What a connection's bytes are read as: its requests, and the status of the refusal at its end.
struct Conversation {
  std::vector<Request> requests;
  int refusal = 0;
};

Conversation conversationOf(const Words& pieces) {
  Conversation conversation;
  web::RequestReader reader;
  for (const std::string& piece : pieces) {
    web::Reading reading = reader.take(piece);
    while (auto* const request = std::get_if<Request>(&reading)) {
      EXPECT_LE(request->body.size(), web::kBodyBytesMax);
      conversation.requests.push_back(std::move(*request));
      reading = reader.take({});
    }
    if (const auto* const bad = std::get_if<web::BadRequest>(&reading)) {
      conversation.refusal = bad->status;
      break;
    }
  }
  return conversation;
}

bool knowsKey(const Request& request, const std::string& key) {
  const auto holds_key = [&](const std::string& value) { return value.find(key) != value.npos; };
  return std::ranges::any_of(request.cookies, holds_key) ||
         std::ranges::any_of(request.authorizations, holds_key);
}

// Every line of a head is one that the server wrote.
void expectWholeHead(const Answer& answer) {
  const std::string head = web::headOf(answer, true);
  EXPECT_TRUE(head.ends_with("\r\n\r\n"));
  EXPECT_EQ(head.find("\r\n\r\n"), head.size() - 4);
  EXPECT_NE(head.find("Content-Security-Policy: default-src 'none';"), head.npos);
  EXPECT_EQ(std::ranges::count(head, '\r'), std::ranges::count(head, '\n'));
}

void expectHarmlessAnswer(const Site& site, const Request& request) {
  const bool knows_key = knowsKey(request, site.key);
  const Files before = site.files();
  const Answer answer = site.routes.answer(request);
  expectWholeHead(answer);
  if (answer.type == std::string_view("application/json")) {
    EXPECT_TRUE(nlohmann::json::accept(answer.content())) << answer.content();
  }
  const bool is_file = !answer.file.empty() || answer.status == 304;
  const bool is_login =
      !answer.headers.empty() && answer.headers[0].first == std::string("Set-Cookie");
  if (answer.status < 400 && !is_file && !is_login) EXPECT_TRUE(knows_key);
  if (is_login) EXPECT_NE(request.body.find(site.key), std::string::npos);
  const Files after = site.files();
  if (!knows_key) EXPECT_EQ(after, before);
  EXPECT_EQ(after.at(control::kAccessKeyFileName), before.at(control::kAccessKeyFileName));
  // Even a command creates nothing but what belongs to the preferences.
  for (const auto& [name, contents] : after) {
    EXPECT_TRUE(name.starts_with("com.zel.vorlatch.")) << name;
  }
}

}  // namespace

const Words& vocabulary() {
  static const Words& words = *[] {
    auto* all = new Words(preferencesWords());
    for (const char* word : {"GET / HTTP/1.1\r\n",
                             "POST /api/command HTTP/1.1\r\n",
                             "POST /api/login HTTP/1.1\r\n",
                             "/0123456789abcdef0123456789abcdef",
                             "GET /api/events?lang=zh HTTP/1.1\r\n",
                             "Host: 127.0.0.1:8717\r\n",
                             "Host: localhost\r\n",
                             "Origin: http://localhost\r\n",
                             "Cookie: vorlatch=@KEY@\r\n",
                             "Cookie: a=b; ",
                             "Authorization: Bearer @KEY@\r\n",
                             "Content-Length: 36\r\n",
                             "Content-Length: ",
                             "Transfer-Encoding: chunked\r\n",
                             "Connection: close\r\n",
                             "Expect: 100-continue\r\n",
                             "If-None-Match: \"1\"\r\n",
                             "Accept-Language: zh-CN\r\n",
                             "\r\n",
                             "0\r\n\r\n",
                             "5\r\n",
                             "{\"key\": \"@KEY@\"}",
                             "{\"words\": [\"list\"], \"lang\": \"en\"}",
                             "\"status\"",
                             "\"set\", \"kbd\", \"NiceValue=5\"",
                             "\"undo\"",
                             "\"profile\", \"save\", \"x\"",
                             "\"preset\", \"--replace\"",
                             "\"remove\", \"kbd\"",
                             "\"log\", \"-n\", \"5\"",
                             "\"--\"",
                             "\"\\u0000\"",
                             "[",
                             "{",
                             "@KEY@"}) {
      all->emplace_back(word);
    }
    return all;
  }();
  return words;
}

void feed(std::string_view input) {
  static const Site& site = *new Site;
  site.restore();
  const Words pieces = piecesIn(input, site.key);
  const Conversation conversation = conversationOf(pieces);
  // The same bytes, one at a time.
  Words bytes;
  for (const std::string& piece : pieces) {
    for (const char& byte : piece) bytes.emplace_back(1, byte);
  }
  const Conversation slow = conversationOf(bytes);
  EXPECT_EQ(slow.requests.size(), conversation.requests.size());
  for (std::size_t i = 0; i < std::min(slow.requests.size(), conversation.requests.size()); ++i) {
    EXPECT_EQ(slow.requests[i].path, conversation.requests[i].path);
    EXPECT_EQ(slow.requests[i].body, conversation.requests[i].body);
  }
  for (const Request& request : conversation.requests) expectHarmlessAnswer(site, request);
}

}  // namespace vorlatch::fuzz
