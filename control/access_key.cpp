#include "control/access_key.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdlib>

#include "base/files.h"
#include "control/failure.h"
#include "control/preferences_edit.h"
#include "rootprefix/pref_path.h"

namespace vorlatch::control {
namespace {

constexpr std::string_view kDigits = "0123456789abcdef";

}  // namespace

std::string newSecret() {
  std::array<unsigned char, kSecretDigits / 2> random{};
  ::arc4random_buf(random.data(), random.size());
  std::string secret;
  for (const unsigned char byte : random) {
    secret += kDigits[byte >> 4U];
    secret += kDigits[byte & 0xFU];
  }
  return secret;
}

bool isSecret(std::string_view text) {
  return text.size() == kSecretDigits && text.find_first_not_of(kDigits) == text.npos;
}

std::optional<std::string> storedAccessKey() {
  constexpr std::size_t kLineBytes = kSecretDigits + 1;
  const std::optional<std::string> path = getPrefPath(kAccessKeyFileName);
  if (!path) return std::nullopt;
  std::optional<std::string> text = readSecretFile(*path, kLineBytes);
  if (!text || !text->ends_with('\n')) return std::nullopt;
  text->pop_back();
  return isSecret(*text) ? std::move(text) : std::nullopt;
}

std::string accessKey() {
  if (std::optional<std::string> key = storedAccessKey()) return *std::move(key);
  // vorlatchctl and the server may find no key at the same moment.
  const Descriptor lock = lockPreferences();
  std::optional<std::string> key = storedAccessKey();
  return key ? *std::move(key) : replaceAccessKey();
}

std::string replaceAccessKey() {
  const std::string path = daemonFile(kAccessKeyFileName);
  std::string key = newSecret();
  if (!writeSecretFile(path, key + "\n")) failCouldNot(path + ": " + reasonOf(errno));
  return key;
}

bool isSameKey(std::string_view a, std::string_view b) {
  unsigned difference = a.size() == b.size() ? 0 : 1;
  for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
    difference |=
        static_cast<unsigned char>(a[i]) ^ static_cast<unsigned>(static_cast<unsigned char>(b[i]));
  }
  return difference == 0;
}

}  // namespace vorlatch::control
