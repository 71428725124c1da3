// Requests from raw bytes, whole and in pieces, and everything that is none.
#include "web/request_reader.h"

#include <gtest/gtest.h>

namespace vorlatch::tests {
namespace {

using web::BadRequest;
using web::Incomplete;
using web::Reading;
using web::Request;
using web::RequestReader;

// The request, or "incomplete", or the status of the refusal.
std::string textOf(const Reading& reading) {
  if (std::holds_alternative<Incomplete>(reading)) return "incomplete";
  if (const auto* bad = std::get_if<BadRequest>(&reading)) return std::to_string(bad->status);
  const auto& request = std::get<Request>(reading);
  return request.method + " " + request.path + "?" + request.query + " " +
         testing::PrintToString(request.hosts) + " " + request.body +
         (request.keeps_connection ? "" : " close");
}

std::string read(std::string_view bytes) {
  RequestReader reader;
  return textOf(reader.take(bytes));
}

std::string post(const std::string& headers, const std::string& body) {
  return "POST /x HTTP/1.1\r\nHost: h\r\n" + headers + "\r\n" + body;
}

const std::string kWhole = post("Content-Length: 4\r\n", "body");
constexpr const char* kWholeText = R"(POST /x? { "h" } body)";

TEST(RequestReader, ReadsWhatTheServerLooksAt) {
  RequestReader reader;
  const Reading reading = reader.take(
      "GET /a/b?c=d?e HTTP/1.1\r\nhost: one\r\nHOST: two\r\nOrigin: o\r\nCookie: a=b; c\r\n"
      "Cookie: d\r\nAuthorization:  Bearer k \r\nAccept-Language: zh-CN\r\nIf-None-Match: \"t\"\r\n"
      "X-Other: x\r\n\r\n");
  const auto& request = std::get<Request>(reading);
  EXPECT_EQ(textOf(reading), R"(GET /a/b?c=d?e { "one", "two" } )");
  EXPECT_EQ(request.origins, std::vector<std::string>{"o"});
  EXPECT_EQ(request.cookies, (std::vector<std::string>{"a=b; c", "d"}));
  EXPECT_EQ(request.authorizations, std::vector<std::string>{"Bearer k"});
  EXPECT_EQ(request.accepted_languages, "zh-CN");
  EXPECT_EQ(request.known_tag, "\"t\"");
}

TEST(RequestReader, TakesAByteAtATime) {
  RequestReader reader;
  for (std::size_t i = 0; i + 1 < kWhole.size(); ++i) {
    EXPECT_EQ(textOf(reader.take(kWhole.substr(i, 1))), "incomplete") << i;
    EXPECT_TRUE(reader.hasBegun());
  }
  EXPECT_EQ(textOf(reader.take(kWhole.substr(kWhole.size() - 1))), kWholeText);
  EXPECT_FALSE(reader.hasBegun());
}

TEST(RequestReader, TakesEveryCutInTwo) {
  for (std::size_t cut = 0; cut < kWhole.size(); ++cut) {
    RequestReader reader;
    EXPECT_EQ(textOf(reader.take(kWhole.substr(0, cut))), "incomplete") << cut;
    EXPECT_EQ(textOf(reader.take(kWhole.substr(cut))), kWholeText) << cut;
  }
}

TEST(RequestReader, KeepsTheNextRequest) {
  RequestReader reader;
  EXPECT_EQ(textOf(reader.take(kWhole + kWhole + "GET /y HTTP/1.0\r\n\r\n" + "GET /z")),
            kWholeText);
  EXPECT_EQ(textOf(reader.take("")), kWholeText);
  EXPECT_EQ(textOf(reader.take("")), "GET /y? {}  close");
  EXPECT_EQ(textOf(reader.take("")), "incomplete");
  EXPECT_EQ(textOf(reader.take(" HTTP/1.1\r\nConnection: close\r\n\r\n")), "GET /z? {}  close");
}

// A body has a length.
TEST(RequestReader, RefusesChunkedBodies) {
  const std::string chunked = "Transfer-Encoding: chunked\r\n";
  for (const char* body : {"", "0\r\n\r\n", "2\r\nbo\r\n2;x=y\r\ndy\r\n0\r\n\r\n", "x\r\n"}) {
    EXPECT_EQ(read(post(chunked, body)), "411") << body;
  }
  RequestReader reader;
  std::string answer = "incomplete";
  for (const char& byte : post(chunked, "0\r\n\r\n")) {
    const std::string next = textOf(reader.take({&byte, 1}));
    if (answer == "incomplete") answer = next;
  }
  EXPECT_EQ(answer, "411");
}

TEST(RequestReader, RefusesContradictoryLengths) {
  EXPECT_EQ(read(post("Content-Length: 4\r\nContent-Length: 5\r\n", "bodyx")), "400");
  EXPECT_EQ(read(post("Content-Length: 4, 5\r\n", "bodyx")), "400");
  EXPECT_EQ(read(post("Content-Length: 4\r\nTransfer-Encoding: chunked\r\n", "0\r\n\r\n")), "400");
  EXPECT_EQ(read(post("Transfer-Encoding: chunked\r\nContent-Length: 4\r\n", "0\r\n\r\n")), "400");
  for (const char* length : {"-1", "+4", "4x", "0x4", "", "99999999999999999999"}) {
    EXPECT_EQ(read(post(std::string("Content-Length: ") + length + "\r\n", "body")), "400")
        << length;
  }
}

TEST(RequestReader, BoundsTheHeader) {
  const std::string line = "X-Padding: " + std::string(100, 'x') + "\r\n";
  std::string large;
  while (large.size() < web::kHeaderBytesMax) large += line;
  EXPECT_EQ(read(post(large.substr(0, 70 * line.size()), "")), R"(POST /x? { "h" } )");
  EXPECT_EQ(read(post(large, "")), "431");
  EXPECT_EQ(read("GET /" + std::string(9'000, 'x') + " HTTP/1.1\r\n\r\n"), "431");
  EXPECT_EQ(read("GET /" + std::string(9'000, 'x')), "431");
  EXPECT_EQ(read(std::string(9'000, 'G')), "431");
  EXPECT_EQ(read("GET / HTTP/1.1\r\nX: " + std::string(9'000, 'x')), "431");
}

TEST(RequestReader, RefusesAMillionHeadersEarly) {
  RequestReader reader;
  EXPECT_EQ(textOf(reader.take("GET / HTTP/1.1\r\n")), "incomplete");
  int taken = 0;
  std::string answer = "incomplete";
  while (answer == "incomplete" && taken < 1'000'000) {
    answer = textOf(reader.take("A: b\r\n"));
    ++taken;
  }
  EXPECT_EQ(answer, "431");
  EXPECT_LT(taken, 2'000);
  // Nothing behind it is read any more.
  EXPECT_EQ(textOf(reader.take("\r\n\r\nGET / HTTP/1.1\r\n\r\n")), "400");
}

TEST(RequestReader, BoundsTheBody) {
  const auto of_length = [](std::size_t size) {
    return read(post("Content-Length: " + std::to_string(size) + "\r\n", std::string(size, 'b')));
  };
  EXPECT_EQ(of_length(web::kBodyBytesMax),
            R"(POST /x? { "h" } )" + std::string(web::kBodyBytesMax, 'b'));
  EXPECT_EQ(of_length(web::kBodyBytesMax + 1), "413");
  EXPECT_EQ(read(post("Content-Length: 1000000000\r\n", "")), "413");
}

TEST(RequestReader, RefusesWhatIsNoRequest) {
  for (const std::string& bytes :
       {std::string("\r\n\r\n"), std::string("GET\r\n\r\n"), std::string("GET / HTTP/2.0\r\n\r\n"),
        std::string("GET / FTP/1.1\r\n\r\n"), std::string("GET  / HTTP/1.1\r\n\r\n"),
        std::string("GET / HTTP/1.1\r\nno colon\r\n\r\n"),
        std::string("GET / HTTP/1.1\r\n: x\r\n\r\n"),
        std::string("GET / HTTP/1.1\r\nA : x\r\n\r\n"), std::string("GET /\0 HTTP/1.1\r\n\r\n", 19),
        std::string("G\xc3\xa9T / HTTP/1.1\r\n\r\n"),
        std::string("GET / HTTP/1.1\r\nA: x\0y\r\n\r\n", 26),
        std::string("\x16\x03\x01\x02\r\n\r\n"), std::string("HTTP/1.1 200 OK\r\n\r\n"),
        std::string("GET / HTTP/1.1\nHost: h\n\n\r\n\r\n")}) {
    EXPECT_EQ(read(bytes), "400") << testing::PrintToString(bytes);
  }
}

}  // namespace
}  // namespace vorlatch::tests
