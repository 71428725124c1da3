#include "web/connection.h"

#include <boost/asio/write.hpp>
#include <utility>

namespace vorlatch::web {
namespace {

using boost::system::error_code;

constexpr char kCommentBegin = ':';
// A connection without a request may last so many times as long as one with a part of a request.
constexpr int kIdlePatience = 4;

}  // namespace

Connection::Connection(Socket socket, ConnectionOwner& owner, std::chrono::milliseconds patience)
    : socket_(std::move(socket)),
      owner_(owner),
      patience_(patience),
      deadline_(socket_.get_executor()) {}

void Connection::close() {
  if (std::exchange(is_closed_, true)) return;
  error_code ignored;
  socket_.close(ignored);
  deadline_.cancel();
  owner_.forget(*this);
}

void Connection::limitTime(std::chrono::milliseconds patience) {
  deadline_.expires_after(patience);
  deadline_.async_wait([self = shared_from_this()](const error_code& error) {
    if (!error) self->close();
  });
}

void Connection::unlimitTime() {
  deadline_.cancel();
}

void Connection::awaitRequest() {
  // A page asks again every 30 s at the latest, and a browser may not repeat a request whose
  // connection ends.
  limitTime(kIdlePatience * patience_);
  // The next request may have come with the last one.
  take({});
}

void Connection::readMore() {
  socket_.async_read_some(boost::asio::buffer(bytes_),
                          [self = shared_from_this()](const error_code& error, std::size_t size) {
                            if (self->is_closed_) return;
                            if (error) return self->close();
                            self->take({self->bytes_.data(), size});
                          });
}

void Connection::take(std::string_view bytes) {
  const Reading reading = reader_.take(bytes);
  if (!std::holds_alternative<Incomplete>(reading)) is_reading_request_ = false;
  if (const auto* const request = std::get_if<Request>(&reading)) {
    sends_content_ = request->method != "HEAD";
    write(owner_.answer(*request), request->keeps_connection);
  } else if (const auto* const bad = std::get_if<BadRequest>(&reading)) {
    sends_content_ = true;
    write(badRequestAnswer(bad->status), false);
  } else {
    if (!bytes.empty() && !is_reading_request_) limitTime(patience_);
    is_reading_request_ = reader_.hasBegun();
    readMore();
  }
}

void Connection::write(Answer answer, bool keeps_connection) {
  answer_ = std::move(answer);
  const bool goes_on = keeps_connection && !answer_.listens;
  head_ = headOf(answer_, goes_on);
  const std::string_view content = sends_content_ ? answer_.content() : std::string_view();
  const std::array<boost::asio::const_buffer, 2> buffers{
      boost::asio::buffer(head_), boost::asio::buffer(content.data(), content.size())};
  limitTime(patience_);
  boost::asio::async_write(
      socket_, buffers, [self = shared_from_this(), goes_on](const error_code& error, std::size_t) {
        if (self->is_closed_) return;
        if (error) return self->close();
        if (self->answer_.listens) return self->beginListening();
        if (goes_on) return self->awaitRequest();
        // Closing at once would discard the answer if bytes are unread.
        error_code ignored;
        self->socket_.shutdown(Socket::shutdown_send, ignored);
        self->drain();
      });
}

void Connection::drain() {
  socket_.async_read_some(boost::asio::buffer(bytes_),
                          [self = shared_from_this()](const error_code& error, std::size_t) {
                            if (self->is_closed_) return;
                            if (error) return self->close();
                            self->drain();
                          });
}

void Connection::beginListening() {
  unlimitTime();
  is_listening_ = true;
  drain();
  owner_.listen(*answer_.listens, *this);
}

void Connection::send(const EventText& event) {
  if (is_closed_) return;
  if (event_ != nullptr) {
    // A slow page gets the newest status alone.
    if (pending_ == nullptr || event->front() != kCommentBegin) pending_ = event;
    return;
  }
  event_ = event;
  writeEvent();
}

void Connection::writeEvent() {
  limitTime(patience_);
  boost::asio::async_write(socket_, boost::asio::buffer(*event_),
                           [self = shared_from_this()](const error_code& error, std::size_t) {
                             if (self->is_closed_) return;
                             if (error) return self->close();
                             self->unlimitTime();
                             self->event_ = std::exchange(self->pending_, nullptr);
                             if (self->event_ != nullptr) self->writeEvent();
                           });
}

}  // namespace vorlatch::web
