#include "control/profiles.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <utility>

#include "base/display_text.h"
#include "base/files.h"
#include "base/utf8.h"
#include "config/preferences.h"
#include "config/property_list_guard.h"
#include "control/failure.h"
#include "control/nearest.h"
#include "control/preferences_edit.h"
#include "control/transfer.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

using plist::Dictionary;

constexpr std::string_view kBegin = "com.zel.vorlatch.profile.";
constexpr std::string_view kEnd = ".plist";
constexpr std::size_t kLongestName = 64;

bool isValidName(std::string_view name) {
  return !name.empty() && name.size() <= kLongestName && isValidUtf8(name) &&
         !name.starts_with('.') && name.find('/') == name.npos && visible(name) == name;
}

std::string fileOf(std::string_view name) {
  if (!isValidName(name)) {
    failWrongUsage(
        tr("a profile's name has 1 to 64 bytes of UTF-8, without / and control characters, and "
           "does not begin with a dot"));
  }
  return daemonFile(std::string(kBegin).append(name).append(kEnd));
}

// Returns the targets in a preferences file or a profile.
const Dictionary* targetsIn(const Dictionary& dictionary) {
  const plist::Value* targets = plist::find(dictionary, keys::kAppConfigs);
  return targets != nullptr ? targets->as<Dictionary>() : nullptr;
}

std::optional<Dictionary> readProfile(const std::string& file) {
  const std::optional<std::string> bytes = readFileToPublish(file, kPropertyListBound.file_bytes);
  const std::optional<Dictionary> dictionary = bytes ? dictionaryIn(*bytes) : std::nullopt;
  const Dictionary* targets = dictionary ? targetsIn(*dictionary) : nullptr;
  return targets != nullptr ? std::optional(*targets) : std::nullopt;
}

// Returns the file of a profile that exists.
std::string existingFileOf(const std::string& name) {
  std::string file = fileOf(name);
  if (!fileExists(file)) {
    failWrongUsage(tr("no profile %s is saved", name) + suggestion(name, profileNames()));
  }
  return file;
}

}  // namespace

std::vector<std::string> profileNames() {
  constexpr std::size_t kMostFiles = 50'000;
  const std::string folder =
      std::filesystem::path(daemonFile(kPreferencesFileName)).parent_path().string();
  const auto files = namesIn(folder, kMostFiles);
  if (!files) failCouldNot(folder + ": " + reasonOf(errno));
  std::vector<std::string> names;
  for (const std::string& file : *files) {
    if (file.size() <= kBegin.size() + kEnd.size()) continue;
    if (!file.starts_with(kBegin) || !file.ends_with(kEnd)) continue;
    std::string name = file.substr(kBegin.size(), file.size() - kBegin.size() - kEnd.size());
    if (isValidName(name)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::vector<Profile> profiles() {
  const Dictionary preferences = loadPreferences();
  const Dictionary* in_use = targetsIn(preferences);
  std::vector<Profile> all;
  for (std::string& name : profileNames()) {
    std::string file = fileOf(name);
    const std::optional<Dictionary> targets = readProfile(file);
    all.push_back({.name = std::move(name),
                   .file = std::move(file),
                   .targets = targets ? std::optional(targets->size()) : std::nullopt,
                   .is_in_use = targets && in_use != nullptr && isIdentical(*targets, *in_use)});
  }
  return all;
}

std::size_t saveProfile(const std::string& name, bool replaces, bool writes) {
  const std::string file = fileOf(name);
  const Descriptor lock = writes ? lockPreferences() : Descriptor(-1);
  const std::string path = daemonFile(kPreferencesFileName);
  StoredPreferences stored = readStoredPreferences(path);
  requireWhole(path, stored);
  const Dictionary* targets = targetsIn(stored.dictionary);
  if (targets == nullptr) failCouldNot(tr("%s has no targets; nothing is saved", path));
  const std::size_t count = targets->size();
  stored.dictionary = Dictionary{{keys::kAppConfigs, *targets}};
  const std::string bytes = writtenForm(file, stored);
  requireWritable(file, replaces);
  if (writes) writeUserFile(file, bytes, replaces);
  return count;
}

Change useProfile(const std::string& name) {
  const std::string file = existingFileOf(name);
  std::optional<Dictionary> targets = readProfile(file);
  if (!targets) {
    failCouldNot(tr("%s is no property list with AppConfigs; nothing is changed", file));
  }
  return [targets = *std::move(targets)](Dictionary& preferences) {
    preferences.insert_or_assign(keys::kAppConfigs, targets);
  };
}

void removeProfile(const std::string& name, bool writes) {
  const std::string file = existingFileOf(name);
  if (writes && ::unlink(file.c_str()) != 0) failCouldNot(file + ": " + reasonOf(errno));
}

}  // namespace vorlatch::control
