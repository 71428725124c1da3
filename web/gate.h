// Decides who may make a request. The server listens on this machine alone, but every program on
// it, and every page in its browser, can send requests there.
#pragma once

#include <optional>
#include <string>

#include "web/request.h"

namespace vorlatch::web {

// What a path of the server asks for.
struct Door {
  const char* method;
  bool needs_key;
};

enum class Entry { Granted, WrongHost, WrongOrigin, WrongMethod, NoKey };

// Judges a request by its method and headers. `key` is the one in the key file, if there is one.
// The key comes in the cookie that a login has set, or behind "Authorization: Bearer".
Entry judge(const Request& request, const Door& door, const std::optional<std::string>& key);

// Returns true if the request comes with the key, wherever it comes from.
bool holdsKey(const Request& request, const std::optional<std::string>& key);

// The name of the cookie with the key.
inline constexpr const char* kCookieName = "vorlatch";

}  // namespace vorlatch::web
