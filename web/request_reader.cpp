#include "web/request_reader.h"

#include <boost/asio/buffer.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/http/string_body.hpp>
#include <optional>

namespace vorlatch::web {
namespace {

namespace http = boost::beast::http;

constexpr int kBadRequest = 400;
constexpr int kTooLarge = 413;
constexpr int kHeaderTooLarge = 431;
constexpr int kLengthRequired = 411;
// Of a request that is not yet read.
constexpr std::size_t kUnreadBytesMax = kHeaderBytesMax + kBodyBytesMax;

using Parser = http::request_parser<http::string_body>;

std::string textOf(boost::beast::string_view text) {
  return {text.data(), text.size()};
}

std::vector<std::string> valuesOf(const Parser::value_type& message, http::field name) {
  std::vector<std::string> values;
  const auto range = message.equal_range(name);
  for (auto field = range.first; field != range.second; ++field) {
    values.push_back(textOf(field->value()));
  }
  return values;
}

Request requestOf(const Parser::value_type& message) {
  const std::string target = textOf(message.target());
  const std::size_t question = std::min(target.find('?'), target.size());
  return {.method = textOf(message.method_string()),
          .path = target.substr(0, question),
          .query = target.substr(std::min(question + 1, target.size())),
          .hosts = valuesOf(message, http::field::host),
          .origins = valuesOf(message, http::field::origin),
          .cookies = valuesOf(message, http::field::cookie),
          .authorizations = valuesOf(message, http::field::authorization),
          .accepted_languages = textOf(message[http::field::accept_language]),
          .known_tag = textOf(message[http::field::if_none_match]),
          .body = message.body(),
          .keeps_connection = message.keep_alive()};
}

int statusOf(const boost::system::error_code& error) {
  if (error == http::error::header_limit) return kHeaderTooLarge;
  return error == http::error::body_limit ? kTooLarge : kBadRequest;
}

}  // namespace

struct RequestReader::State {
  std::optional<Parser> parser;
  std::string unread;
  bool has_failed = false;

  void startNext() {
    parser.emplace();
    parser->header_limit(kHeaderBytesMax);
    parser->body_limit(kBodyBytesMax);
  }
};

RequestReader::RequestReader() : state_(std::make_unique<State>()) {
  state_->startNext();
}

RequestReader::~RequestReader() = default;

Reading RequestReader::take(std::string_view bytes) {
  if (state_->has_failed) return BadRequest{kBadRequest};
  Parser& parser = *state_->parser;
  std::string& unread = state_->unread;
  unread += bytes;
  boost::system::error_code error;
  while (!unread.empty() && !parser.is_done() && !error) {
    const std::size_t read = parser.put(boost::asio::buffer(unread), error);
    unread.erase(0, read);
    // No browser sends chunks, and Beast 1.81 stops the program in debug builds if the last chunk
    // comes in pieces.
    if (parser.is_header_done() && parser.chunked()) return refuse(kLengthRequired);
  }
  if (error == http::error::need_more && unread.size() <= kUnreadBytesMax) error = {};
  if (error) return refuse(statusOf(error));
  if (!parser.is_done()) return Incomplete{};
  Request request = requestOf(parser.get());
  state_->startNext();
  return request;
}

BadRequest RequestReader::refuse(int status) {
  state_->has_failed = true;
  return {status};
}

bool RequestReader::hasBegun() const {
  return !state_->unread.empty() || state_->parser->got_some();
}

}  // namespace vorlatch::web
