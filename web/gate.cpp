#include "web/gate.h"

#include <algorithm>
#include <string_view>

#include "control/access_key.h"

namespace vorlatch::web {
namespace {

constexpr std::size_t kLongestPort = 5;

// Returns true for a name of this machine with any port, because a port may be forwarded. A name
// that an attacker's domain server resolves to this machine is another one.
bool isThisMachine(std::string_view host) {
  for (const std::string_view name : {"127.0.0.1", "localhost"}) {
    if (!host.starts_with(name)) continue;
    std::string_view port = host.substr(name.size());
    if (port.empty()) return true;
    if (!port.starts_with(':')) return false;
    port.remove_prefix(1);
    return !port.empty() && port.size() <= kLongestPort &&
           port.find_first_not_of("0123456789") == port.npos;
  }
  return false;
}

// Browsers leave Origin out of requests that change nothing. Another page can cause these, but
// neither send the key with them nor read the answer.
bool isOwnOrigin(const Request& request) {
  if (request.origins.empty()) return true;
  return request.origins.size() == 1 &&
         request.origins.front() == "http://" + request.hosts.front();
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t";
  text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
  return text.substr(0, text.find_last_not_of(kBlanks) + 1);
}

// Returns true if one of the cookies is the key. A program at another port can add a cookie of the
// same name, so there may be several.
bool holdsKeyCookie(std::string_view cookies, const std::string& key) {
  while (!cookies.empty()) {
    const std::size_t end = std::min(cookies.find(';'), cookies.size());
    const std::string_view cookie = trimmed(cookies.substr(0, end));
    const std::size_t equals = std::min(cookie.find('='), cookie.size());
    const bool is_ours = cookie.substr(0, equals) == kCookieName && equals < cookie.size();
    if (is_ours && control::isSameKey(cookie.substr(equals + 1), key)) return true;
    cookies.remove_prefix(std::min(end + 1, cookies.size()));
  }
  return false;
}

}  // namespace

bool holdsKey(const Request& request, const std::optional<std::string>& key) {
  if (!key) return false;
  constexpr std::string_view kScheme = "Bearer ";
  for (const std::string_view value : request.authorizations) {
    if (value.starts_with(kScheme) && control::isSameKey(value.substr(kScheme.size()), *key)) {
      return true;
    }
  }
  return std::any_of(request.cookies.begin(), request.cookies.end(),
                     [&key](const std::string& cookies) { return holdsKeyCookie(cookies, *key); });
}

Entry judge(const Request& request, const Door& door, const std::optional<std::string>& key) {
  if (request.hosts.size() != 1 || !isThisMachine(request.hosts.front())) return Entry::WrongHost;
  if (!isOwnOrigin(request)) return Entry::WrongOrigin;
  if (request.method != door.method) return Entry::WrongMethod;
  if (door.needs_key && !holdsKey(request, key)) return Entry::NoKey;
  return Entry::Granted;
}

}  // namespace vorlatch::web
