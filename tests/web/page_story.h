// A story with a page of two files, a key, and requests that may enter.
#pragma once

#include <array>
#include <string>

#include "control/access_key.h"
#include "tests/cli/control_run.h"
#include "web/page_files.h"
#include "web/request.h"

namespace vorlatch::tests {

inline constexpr std::array<web::PageFile, 2> kPage{
    web::PageFile{.name = "index.html", .type = "text/html", .tag = "\"1\"", .gzip = "packed page"},
    web::PageFile{.name = "app.js", .type = "text/javascript", .tag = "\"2\"", .gzip = "code"}};

struct PageStory : ControlStory {
  PageStory() { writeTargets({}); }

  const std::string key = control::accessKey();

  [[nodiscard]] static web::Request get(const std::string& path) {
    return {.method = "GET", .path = path, .hosts = {"127.0.0.1:8717"}};
  }
  [[nodiscard]] web::Request post(const std::string& path, const std::string& body) const {
    return {.method = "POST",
            .path = path,
            .hosts = {"127.0.0.1:8717"},
            .origins = {"http://127.0.0.1:8717"},
            .cookies = {"vorlatch=" + key},
            .body = body};
  }
};

}  // namespace vorlatch::tests
