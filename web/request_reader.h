// Reads requests from the bytes of a connection, within bounds.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>
#include <variant>

#include "web/request.h"

namespace vorlatch::web {

inline constexpr std::size_t kHeaderBytesMax = std::size_t{8} << 10U;
inline constexpr std::size_t kBodyBytesMax = std::size_t{16} << 10U;

// More bytes are needed.
struct Incomplete {};
// The bytes are no request that the server takes; nothing behind them can be read.
struct BadRequest {
  int status;  // of HTTP: 400, 411, 413 or 431
};
using Reading = std::variant<Incomplete, Request, BadRequest>;

class RequestReader {
 public:
  RequestReader();
  RequestReader(const RequestReader&) = delete;
  RequestReader& operator=(const RequestReader&) = delete;
  ~RequestReader();

  // Adds bytes of the connection, and returns the next request if it is complete.
  Reading take(std::string_view bytes);
  // Returns true if bytes of an unfinished request are there.
  [[nodiscard]] bool hasBegun() const;

 private:
  BadRequest refuse(int status);

  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace vorlatch::web
