// What each path answers, and that everything else is nothing.
#include "web/routes.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include "tests/web/page_story.h"

namespace vorlatch::tests {
namespace {

using web::Answer;
using web::Request;

struct RoutesStory : PageStory {
  const web::Routes routes{kPage};

  // The status and the body.
  [[nodiscard]] std::string answerTo(const Request& request) const {
    const Answer answer = routes.answer(request);
    return std::to_string(answer.status) + " " + std::string(answer.content());
  }
  [[nodiscard]] std::string command(const std::string& body) const {
    return answerTo(post("/api/command", body));
  }
};

std::string refusalText(const std::string& status, const std::string& code,
                        const std::string& message) {
  return status + R"( {"error":{"code":")" + code + R"(","message":")" + message + "\"}}\n";
}

const std::string kNothing = refusalText("404", "not-found", "there is nothing at this address");
const std::string kUnreadable = refusalText("400", "bad-request", "the request cannot be read");

TEST(Routes, GiveThePageWithoutAKey) {
  RoutesStory story;
  const Answer answer = story.routes.answer(PageStory::get("/"));
  EXPECT_EQ(web::headOf(answer, true),
            "HTTP/1.1 200 OK\r\n"
            "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; "
            "img-src 'self'; connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action "
            "'none'; frame-ancestors 'none'\r\n"
            "X-Content-Type-Options: nosniff\r\n"
            "Referrer-Policy: no-referrer\r\n"
            "Cross-Origin-Resource-Policy: same-origin\r\n"
            "Cross-Origin-Opener-Policy: same-origin\r\n"
            "Cache-Control: no-cache\r\n"
            "ETag: \"1\"\r\n"
            "Content-Encoding: gzip\r\n"
            "Content-Type: text/html\r\n"
            "Content-Length: 11\r\n"
            "Connection: keep-alive\r\n\r\n");
  EXPECT_EQ(answer.content(), "packed page");
  EXPECT_EQ(story.answerTo(PageStory::get("/index.html")), "200 packed page");
  EXPECT_EQ(story.answerTo(PageStory::get("/app.js")), "200 code");
}

TEST(Routes, GiveAFileOnceToABrowserThatKeepsIt) {
  RoutesStory story;
  Request request = PageStory::get("/app.js");
  request.known_tag = "\"2\"";
  EXPECT_EQ(story.answerTo(request), "304 ");
  const std::string head = web::headOf(story.routes.answer(request), false);
  EXPECT_NE(head.find("ETag: \"2\"\r\nConnection: close\r\n\r\n"), head.npos) << head;
  EXPECT_NE(head.find("Cache-Control: no-cache\r\n"), head.npos);
  request.known_tag = "\"1\"";
  EXPECT_EQ(story.answerTo(request), "200 code");
}

TEST(Routes, HaveNothingAtOtherPaths) {
  RoutesStory story;
  for (const char* path : {"",
                           "//",
                           "/.",
                           "/..",
                           "/../index.html",
                           "/./index.html",
                           "//index.html",
                           "/index.html/",
                           "/index.html%00",
                           "/%69ndex.html",
                           "/INDEX.HTML",
                           "/index",
                           "/page/index.html",
                           "/..%2fcom.zel.vorlatch.web.key",
                           "/com.zel.vorlatch.web.key",
                           "/../../etc/passwd",
                           "/etc/passwd",
                           "/%2e%2e/etc/passwd",
                           "/..\\etc\\passwd",
                           "index.html",
                           "*",
                           "http://127.0.0.1/",
                           "/api",
                           "/api/",
                           "/api/login/",
                           "/api//login",
                           "/api/command/..",
                           "/api/events.",
                           "/app.js;x",
                           "/app.js#x",
                           "/app.js.gz"}) {
    EXPECT_EQ(story.answerTo(PageStory::get(path)), kNothing) << path;
  }
}

TEST(Routes, NameTheMethodThatTheyTake) {
  RoutesStory story;
  const auto refused = [](const std::string& method) {
    return refusalText("405", "wrong-method", "this address takes " + method);
  };
  EXPECT_EQ(story.answerTo(PageStory::get("/api/command")), refused("POST"));
  EXPECT_EQ(story.answerTo(PageStory::get("/api/login")), refused("POST"));
  EXPECT_EQ(story.answerTo(story.post("/api/events", "")), refused("GET"));
  EXPECT_EQ(story.answerTo(story.post("/", "")), refused("GET"));
  EXPECT_NE(web::headOf(story.routes.answer(story.post("/", "")), true).find("\r\nAllow: GET\r\n"),
            std::string::npos);
}

TEST(Routes, RefuseStrangersEverywhere) {
  RoutesStory story;
  for (const char* path : {"/", "/app.js", "/none", "/api/login", "/api/command", "/api/events"}) {
    Request request = story.post(path, R"({"key": ")" + story.key + "\"}");
    request.hosts = {"evil.example"};
    EXPECT_EQ(story.answerTo(request),
              refusalText("403", "wrong-host", "the page is at 127.0.0.1 or localhost alone"))
        << path;
    request = story.post(path, "");
    request.origins = {"http://evil.example"};
    EXPECT_EQ(story.answerTo(request),
              refusalText("403", "wrong-origin", "another page sent this request"))
        << path;
  }
}

// Returns the folder that a login names.
std::string folderIn(const Answer& answer) {
  return nlohmann::json::parse(answer.body).at("folder").get<std::string>();
}

// Nobody can guess the folder, so no server at another port is sent the cookie.
TEST(Routes, ExchangeTheKeyForACookieOfOneFolder) {
  RoutesStory story;
  const auto login = [&](const std::string& body) {
    Request request = story.post("/api/login", body);
    request.cookies.clear();
    return request;
  };
  const Answer answer = story.routes.answer(login(R"({"key": ")" + story.key + "\"}"));
  EXPECT_EQ(answer.status, 200);
  const std::string folder = folderIn(answer);
  EXPECT_TRUE(control::isSecret(folder.substr(1, 32))) << folder;
  EXPECT_EQ(folder, "/" + folder.substr(1, 32) + "/");
  ASSERT_EQ(answer.headers.size(), 1U);
  EXPECT_EQ(answer.headers[0].first, std::string("Set-Cookie"));
  EXPECT_EQ(answer.headers[0].second, "vorlatch=" + story.key +
                                          "; HttpOnly; SameSite=Strict; Path=" + folder +
                                          "; Max-Age=31536000");
  EXPECT_NE(folderIn(story.routes.answer(login(R"({"key": ")" + story.key + "\"}"))), folder);
  const std::string wrong =
      refusalText("403", "wrong-key", "this is not the key; vorlatchctl web prints it");
  EXPECT_EQ(story.answerTo(login(R"({"key": ""})")), wrong);
  EXPECT_EQ(story.answerTo(login(R"({"key": ")" + story.key + "0\"}")), wrong);
  EXPECT_EQ(story.answerTo(login(R"({"key": "0123456789abcdef0123456789abcdef"})")), wrong);
  for (const char* body : {"", "x", "[]", "{}", R"({"key": 1})", R"({"key": null})", "{\"key\": \"",
                           "{\"key\": \"\xff\"}"}) {
    EXPECT_EQ(story.answerTo(login(body)), kUnreadable) << body;
  }
  EXPECT_EQ(story.answerTo(login(std::string(16'000, '['))), kUnreadable);
}

TEST(Routes, AreTheSameBelowEachFolder) {
  RoutesStory story;
  const std::string folder = "/0123456789abcdef0123456789abcdef";
  EXPECT_EQ(story.answerTo(PageStory::get(folder + "/")), "200 packed page");
  EXPECT_EQ(story.answerTo(PageStory::get(folder + "/app.js")), "200 code");
  Request request = PageStory::get(folder + "/api/events");
  EXPECT_EQ(story.routes.answer(request).status, 401);
  request.cookies = {"vorlatch=" + story.key};
  EXPECT_EQ(story.routes.answer(request).listens, control::Language::English);
  for (const std::string& path :
       {folder, folder + "0/", folder + folder + "/", folder + "//", folder + "/../app.js",
        std::string("/0123456789ABCDEF0123456789ABCDEF/"), "/" + folder + "/"}) {
    EXPECT_EQ(story.answerTo(PageStory::get(path)), kNothing) << path;
  }
}

TEST(Routes, RunCommandsWithTheKeyAlone) {
  RoutesStory story;
  const std::string list = R"({"words": ["list"], "lang": "en"})";
  EXPECT_EQ(story.command(list),
            "200 {\"status\":0,\"output\":{\"schema\": 1,\"enabled\": true,\"targets\": "
            "{}},\"error\":null}\n");
  Request request = story.post("/api/command", list);
  request.cookies = {"vorlatch=0123456789abcdef0123456789abcdef"};
  const std::string refused =
      refusalText("401", "no-key", "the key is missing or was replaced; vorlatchctl web prints it");
  EXPECT_EQ(story.answerTo(request), refused);
  control::replaceAccessKey();
  EXPECT_EQ(story.command(list), refused);
}

TEST(Routes, RefuseCommandsOfAnotherForm) {
  RoutesStory story;
  for (const char* body : {"", "{}", "[]", R"({"words": "list"})", R"({"words": ["list", 1]})",
                           R"({"words": {"0": "list"}})", R"({"words": ["li\u0000st"]})",
                           R"({"words": ["list"]} x)"}) {
    EXPECT_EQ(story.command(body), kUnreadable) << body;
  }
  const std::string refused =
      refusalText("403", "not-allowed", "the page may not run this command");
  EXPECT_EQ(story.command(R"({"words": []})"), refused);
  EXPECT_EQ(story.command(R"({"words": ["release"]})"), refused);
  EXPECT_EQ(story.command(R"({"words": ["release"], "lang": "zh"})"),
            refusalText("403", "not-allowed", "页面不能运行这个命令"));
}

TEST(Routes, SpeakTheBrowsersLanguage) {
  RoutesStory story;
  Request request = PageStory::get("/none");
  const std::vector<std::pair<const char*, bool>> cases{
      {"zh-CN,zh;q=0.9,en", true}, {"zh", true}, {"en,zh", false}, {"fr", false}, {"", false}};
  for (const auto& [languages, is_chinese] : cases) {
    request.accepted_languages = languages;
    EXPECT_EQ(story.answerTo(request),
              is_chinese ? refusalText("404", "not-found", "这个地址没有内容") : kNothing)
        << languages;
  }
}

TEST(Routes, OpenTheEventsInALanguage) {
  RoutesStory story;
  Request request = PageStory::get("/api/events");
  EXPECT_EQ(story.routes.answer(request).status, 401);
  request.cookies = {"vorlatch=" + story.key};
  EXPECT_EQ(story.routes.answer(request).listens, control::Language::English);
  request.query = "lang=zh";
  const Answer answer = story.routes.answer(request);
  EXPECT_EQ(answer.listens, control::Language::Chinese);
  EXPECT_NE(web::headOf(answer, false)
                .find("Cache-Control: no-store\r\nContent-Type: text/event-stream\r\nConnection: "
                      "close\r\n\r\n"),
            std::string::npos);
}

}  // namespace
}  // namespace vorlatch::tests
