// The server: accepts connections, bounds what they take, and keeps the events going. One thread.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <vector>

#include "web/routes.h"

namespace vorlatch::web {

struct Limits {
  using Duration = std::chrono::milliseconds;

  std::size_t connections = 32;
  Duration request = std::chrono::seconds(10);  // to send a whole request, or to take its answer
  double requests_per_second = 100;             // on average, of all connections
  double request_burst = 200;
  Duration look_interval = std::chrono::seconds(2);  // between two looks at the status
  Duration comment_interval = std::chrono::seconds(20);
  std::optional<Duration> idle = {};  // without a connection; then the server ends
};

class Server {
 public:
  // Takes ownership of the listening sockets. The routes must outlive this object.
  Server(const std::vector<int>& listening, const Routes& routes, const Limits& limits);
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server();

  // Returns when the server was idle for long enough.
  void run();

 private:
  class State;
  const std::unique_ptr<State> state_;
};

}  // namespace vorlatch::web
