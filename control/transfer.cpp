#include "control/transfer.h"

#include <cerrno>
#include <filesystem>
#include <optional>
#include <system_error>
#include <utility>

#include "base/files.h"
#include "config/preferences.h"
#include "control/failure.h"
#include "control/translation.h"
#include "platform/property_list.h"

namespace vorlatch::control {
namespace {

[[noreturn]] void failExists(const std::string& path) {
  failCouldNot(tr("%s exists already; --force replaces it", path));
}

}  // namespace

std::string preferencesAsXml() {
  const std::string path = daemonFile(kPreferencesFileName);
  const StoredPreferences stored = readStoredPreferences(path);
  if (!stored.exists) {
    failCouldNot(tr("%s is missing; the daemon writes its preset when it is started", path));
  }
  std::string xml = platform::writeXmlPropertyList(stored.dictionary);
  const std::optional<plist::Dictionary> back = dictionaryIn(xml);
  if (stored.is_whole && back && isIdentical(*back, stored.dictionary)) return xml;
  failCouldNot(
      tr("%s holds something that an XML file cannot hold as it is; copy the file itself", path));
}

void requireWritable(const std::string& path, bool replaces) {
  namespace fs = std::filesystem;
  std::error_code unknown;
  const fs::file_type type = fs::symlink_status(path, unknown).type();
  if (type == fs::file_type::none) failCouldNot(path + ": " + reasonOf(unknown.value()));
  const bool exists = type != fs::file_type::not_found;
  if (exists && type != fs::file_type::regular) {
    failCouldNot(tr("%s is no regular file, and is left alone; choose another name", path));
  }
  if (exists && !replaces) failExists(path);
}

void writeUserFile(const std::string& path, std::string_view bytes, bool replaces) {
  requireWritable(path, replaces);
  const auto may_replace = [&] { return replaces || !fileExists(path); };
  if (writeFileAtomically(path, bytes, may_replace)) return;
  if (errno == ESTALE) failExists(path);
  if (errno == ENOENT) failCouldNot(tr("%s: there is no such folder", path));
  failCouldNot(path + ": " + reasonOf(errno));
}

UserFile readUserFile(const std::string& path) {
  CheckedFile checked = checkFile(path, false);
  for (const Finding& each : checked.findings) {
    if (each.code != "unreadable") continue;
    failCouldNot(tr("%s %s; nothing is changed", path, each.message));
  }
  errno = 0;
  std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  std::optional<StoredPreferences> stored =
      bytes ? storedPreferencesIn(*std::move(bytes)) : std::nullopt;
  if (!stored) failCouldNot(tr("%s: %s; nothing is changed", path, whyNotRead(errno)));
  return {.preferences = *std::move(stored), .findings = std::move(checked.findings)};
}

}  // namespace vorlatch::control
