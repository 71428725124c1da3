// The key of the page in the browser: 128 random bits in a file that only its owner can read. Who
// knows the key may do through the page what vorlatchctl does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace vorlatch::control {

inline constexpr std::size_t kSecretDigits = 32;

// Returns 128 random bits as hexadecimal digits in lower case.
std::string newSecret();

// Returns true if the text has the form of a secret.
bool isSecret(std::string_view text);

inline constexpr const char* kAccessKeyFileName = "com.zel.vorlatch.web.key";

// The port of the page, unless the user chooses another one.
inline constexpr std::uint16_t kPagePort = 8717;

// Returns the key in the file, which is a secret; std::nullopt if the file is
// missing, others could know its contents, or it holds something else.
std::optional<std::string> storedAccessKey();

// Returns the key in the file, or creates a file with a new one. Throws a Failure if that is
// impossible.
std::string accessKey();

// Replaces the key with a new one, which it returns: the old one opens nothing any more. Throws a
// Failure if the file cannot be written.
std::string replaceAccessKey();

// Returns true if both are the same. Takes the same time wherever they differ, so that nobody can
// guess a key piece by piece.
bool isSameKey(std::string_view a, std::string_view b);

}  // namespace vorlatch::control
