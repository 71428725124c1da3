#include "web/answer.h"

#include "cli/session.h"
#include "control/failure.h"

namespace vorlatch::web {
namespace {

using control::tr;

constexpr const char* kSecurityHeaders =
    "Content-Security-Policy: default-src 'none'; script-src 'self'; style-src 'self'; img-src "
    "'self'; connect-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'\r\n"
    "X-Content-Type-Options: nosniff\r\n"
    "Referrer-Policy: no-referrer\r\n"
    "Cross-Origin-Resource-Policy: same-origin\r\n"
    "Cross-Origin-Opener-Policy: same-origin\r\n";

const char* phraseOf(int status) {
  switch (status) {
    case 200:
      return "OK";
    case 204:
      return "No Content";
    case 304:
      return "Not Modified";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 411:
      return "Length Required";
    case 413:
      return "Content Too Large";
    case 429:
      return "Too Many Requests";
    case 431:
      return "Request Header Fields Too Large";
    default:
      return "Bad Request";
  }
}

bool mayHaveBody(int status) {
  return status != 204 && status != 304;
}

}  // namespace

Answer errorAnswer(int status, const char* code, const std::string& message) {
  const control::Json error{{"error", {{"code", code}, {"message", message}}}};
  return {.status = status, .body = cli::textOf(error, -1) + "\n"};
}

Answer badRequestAnswer(int status) {
  const bool is_large = status == 413 || status == 431;
  return errorAnswer(status, is_large ? "too-large" : "bad-request",
                     is_large ? tr("the request is too large") : tr("the request cannot be read"));
}

std::string headOf(const Answer& answer, bool keeps_connection) {
  std::string head = "HTTP/1.1 " + std::to_string(answer.status) + " " + phraseOf(answer.status) +
                     "\r\n" + kSecurityHeaders;
  head += std::string("Cache-Control: ") + answer.caching + "\r\n";
  for (const auto& [name, value] : answer.headers) {
    head += std::string(name) + ": " + value + "\r\n";
  }
  if (mayHaveBody(answer.status)) {
    head += std::string("Content-Type: ") + answer.type + "\r\n";
    if (!answer.listens) {
      head += "Content-Length: " + std::to_string(answer.content().size()) + "\r\n";
    }
  }
  return head + (keeps_connection ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n");
}

}  // namespace vorlatch::web
