#include "proc/bundle_identifier.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "base/thread_safety.h"
#include "base/utf8.h"
#include "config/property_list_file.h"
#include "platform/process_table.h"

namespace vorlatch {
namespace {

constexpr std::uint32_t kPathBufferBytes = 4096;
constexpr const char* kIdentifierKey = "CFBundleIdentifier";
// Longer identifiers are rejected, so that hostile bundles cannot fill the memory.
constexpr std::size_t kMostIdentifierBytes = 1024;

struct BundleIdentifierCache {
  // Held for one lookup or insertion, never while a file is read.
  Mutex mutex;
  // Keyed by bundle directory.
  std::unordered_map<std::string, std::string> bundleIdentifierCache GUARDED_BY(mutex);
};

BundleIdentifierCache& cache() {
  static BundleIdentifierCache& kept = *new BundleIdentifierCache;
  return kept;
}

std::optional<std::string> cachedIdentifier(const std::string& bundle_directory) {
  BundleIdentifierCache& kept = cache();
  const Lock lock(kept.mutex);
  const auto entry = kept.bundleIdentifierCache.find(bundle_directory);
  if (entry == kept.bundleIdentifierCache.end()) return std::nullopt;
  return entry->second;
}

void rememberIdentifier(const std::string& bundle_directory, const std::string& identifier) {
  BundleIdentifierCache& kept = cache();
  const Lock lock(kept.mutex);
  kept.bundleIdentifierCache.insert_or_assign(bundle_directory, identifier);
}

std::optional<std::string> identifierInInfoPlist(const std::string& bundle_directory) {
  const plist::Dictionary info = readDictionary(bundle_directory + "/Info.plist", kIdentifierKey);
  const plist::Value* identifier = plist::find(info, kIdentifierKey);
  const auto* text = identifier != nullptr ? identifier->as<std::string>() : nullptr;
  if (text == nullptr || text->size() > kMostIdentifierBytes) return std::nullopt;
  return *text;
}

}  // namespace

std::optional<std::string> bundleIdentifierOfProcess(std::int32_t pid) {
  std::array<char, kPathBufferBytes> buffer{};
  if (platform::proc_pidpath(pid, buffer.data(), kPathBufferBytes) < 1) return std::nullopt;
  const std::string_view executable(buffer.data(), strnlen(buffer.data(), buffer.size()));
  const std::size_t slash = executable.rfind('/');
  if (slash == executable.npos) return std::nullopt;
  const std::string_view directory = executable.substr(0, slash);
  if (!directory.ends_with(".app") && !directory.ends_with(".appex")) return std::nullopt;
  if (!isValidUtf8(executable)) return std::nullopt;

  const std::string bundle_directory(directory);
  if (auto known = cachedIdentifier(bundle_directory)) return known;
  std::optional<std::string> identifier = identifierInInfoPlist(bundle_directory);
  if (identifier && !identifier->empty()) rememberIdentifier(bundle_directory, *identifier);
  return identifier;
}

}  // namespace vorlatch
