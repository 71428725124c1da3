#include "control/history.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <filesystem>
#include <utility>

#include "base/files.h"
#include "config/preferences.h"
#include "config/property_list_file.h"
#include "config/property_list_guard.h"
#include "control/failure.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

using plist::Dictionary;

constexpr const char* kMark = ".undo.";
constexpr std::size_t kMostNames = 50'000;  // that the directory is searched for
// A number has at most nine digits, so that the next one always fits.
constexpr std::uint32_t kHighestNumber = 999'999'999;

std::string copyPath(const std::string& preferences_path, std::uint32_t number) {
  return preferences_path + kMark + std::to_string(number);
}

// Returns the number at the end of a copy's name; 0 for any other name.
std::uint32_t numberIn(std::string_view name, std::string_view beginning) {
  if (!name.starts_with(beginning)) return 0;
  name.remove_prefix(beginning.size());
  std::uint32_t number = 0;
  const auto read = std::from_chars(name.data(), name.data() + name.size(), number);
  const bool is_whole = read.ec == std::errc{} && std::to_string(number) == name;
  return is_whole && number <= kHighestNumber ? number : 0;
}

// Returns the numbers of all copies, the newest first; std::nullopt with errno if the directory
// cannot be read.
std::optional<std::vector<std::uint32_t>> findCopies(const std::string& preferences_path) {
  const std::filesystem::path path(preferences_path);
  const std::string beginning = path.filename().string() + kMark;
  const auto names = namesIn(path.parent_path().string(), kMostNames);
  if (!names) return std::nullopt;
  std::vector<std::uint32_t> numbers;
  for (const std::string& name : *names) {
    const std::uint32_t number = numberIn(name, beginning);
    if (number != 0) numbers.push_back(number);
  }
  std::sort(numbers.rbegin(), numbers.rend());
  return numbers;
}

// Does the same, and throws a Failure if the directory cannot be read.
std::vector<std::uint32_t> copiesOf(const std::string& preferences_path) {
  auto numbers = findCopies(preferences_path);
  if (!numbers) failCouldNot(preferences_path + kMark + "*: " + reasonOf(errno));
  return *std::move(numbers);
}

std::int64_t writtenAt(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? std::int64_t{status.st_mtime} : 0;
}

std::optional<Dictionary> dictionaryAt(const std::string& path) {
  const std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  return bytes ? dictionaryIn(*bytes) : std::nullopt;
}

const Dictionary* pointerTo(const std::optional<Dictionary>& dictionary) {
  return dictionary ? &*dictionary : nullptr;
}

std::string readCopy(const std::string& path) {
  errno = 0;
  std::optional<std::string> bytes = readFileToPublish(path, kPropertyListBound.file_bytes);
  if (bytes) return *std::move(bytes);
  failCouldNot(tr("%s: %s; nothing is changed; vorlatchctl undo --list shows the others", path,
                  whyNotRead(errno)));
}

}  // namespace

PreviousFile::PreviousFile(const std::string& preferences_path, const std::string& bytes)
    : preferences_path_(preferences_path) {
  const std::vector<std::uint32_t> numbers = copiesOf(preferences_path);
  const std::uint32_t last = numbers.empty() ? 0 : numbers.front();
  if (last == kHighestNumber) {
    failCouldNot(tr("%s has the last number that there is; remove it, then run this again",
                    copyPath(preferences_path, last)));
  }
  copy_ = copyPath(preferences_path, last + 1);
  if (!writeFileAtomically(copy_, bytes)) {
    failCouldNot(
        tr("%s: %s; the old preferences cannot be kept for vorlatchctl undo, so nothing "
           "is changed",
           copy_, reasonOf(errno)));
  }
}

PreviousFile::~PreviousFile() {
  if (!is_kept_) ::unlink(copy_.c_str());
}

void PreviousFile::keep() {
  is_kept_ = true;
  const auto numbers = findCopies(preferences_path_);
  if (!numbers) return;  // the next edit removes what this one leaves
  for (std::size_t i = kMostUndoSteps; i < numbers->size(); ++i) {
    ::unlink(copyPath(preferences_path_, (*numbers)[i]).c_str());
  }
}

void visitUndoSteps(const std::function<void(const UndoStep&)>& visit) {
  const std::string path = daemonFile(kPreferencesFileName);
  std::optional<Dictionary> after = dictionaryAt(path);
  std::size_t steps = 0;
  for (const std::uint32_t number : copiesOf(path)) {
    if (++steps > kMostUndoSteps) return;
    const std::string copy = copyPath(path, number);
    std::optional<Dictionary> before = dictionaryAt(copy);
    visit({.copy = copy,
           .edited_at_s = writtenAt(copy),
           .before = pointerTo(before),
           .after = pointerTo(after)});
    after = std::move(before);
  }
}

Edit takeBack(std::size_t steps, bool writes) {
  const auto contents = [steps](const std::string& path) {
    const std::vector<std::uint32_t> numbers = copiesOf(path);
    const std::size_t count = std::min(numbers.size(), kMostUndoSteps);
    if (count == 0) failCouldNot(tr("there is no edit to take back"));
    if (steps > count) {
      failWrongUsage(
          tr("edits that can be taken back: %s; vorlatchctl undo --list shows them", count));
    }
    return readCopy(copyPath(path, numbers[steps - 1]));
  };
  return replacePreferences(contents, Sameness::Bytes, writes);
}

}  // namespace vorlatch::control
