// One connection of the server: reads requests, writes answers, and carries events.
#pragma once

#include <array>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <string_view>

#include "web/answer.h"
#include "web/events.h"
#include "web/request_reader.h"

namespace vorlatch::web {

class Connection;

// What a connection needs of its server.
class ConnectionOwner {
 public:
  ConnectionOwner() = default;
  ConnectionOwner(const ConnectionOwner&) = delete;
  ConnectionOwner& operator=(const ConnectionOwner&) = delete;
  virtual ~ConnectionOwner() = default;

  virtual Answer answer(const Request& request) = 0;
  virtual void listen(control::Language language, Listener& listener) = 0;
  // Called once, when the connection has ended.
  virtual void forget(Connection& connection) = 0;
};

class Connection final : public Listener, public std::enable_shared_from_this<Connection> {
 public:
  using Socket = boost::asio::ip::tcp::socket;

  // A request must be there `patience` after its first byte, and an answer must be taken within it.
  Connection(Socket socket, ConnectionOwner& owner, std::chrono::milliseconds patience);

  void start() { awaitRequest(); }
  void close();
  [[nodiscard]] bool isListening() const { return is_listening_; }

  void send(const EventText& event) override;
  void dismiss() override { close(); }

 private:
  void awaitRequest();
  void readMore();
  void take(std::string_view bytes);
  void write(Answer answer, bool keeps_connection);
  void beginListening();
  void writeEvent();
  // Reads without looking at the bytes, until the other side ends the connection.
  void drain();
  void limitTime(std::chrono::milliseconds patience);
  void unlimitTime();

  Socket socket_;
  ConnectionOwner& owner_;
  const std::chrono::milliseconds patience_;
  boost::asio::steady_timer deadline_;
  RequestReader reader_;
  std::array<char, 4096> bytes_{};
  Answer answer_;
  std::string head_;
  EventText event_;            // that is being written
  EventText pending_;          // that follows
  bool sends_content_ = true;  // behind the head
  bool is_reading_request_ = false;
  bool is_listening_ = false;
  bool is_closed_ = false;
};

}  // namespace vorlatch::web
