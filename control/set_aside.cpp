#include "control/set_aside.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <utility>

#include "base/files.h"
#include "config/preferences.h"
#include "control/failure.h"

namespace vorlatch::control {
namespace {

StoredPreferences switchedOff(StoredPreferences preferences) {
  preferences.dictionary.insert_or_assign(keys::kEnabled, false);
  return preferences;
}

}  // namespace

SetAside::SetAside(std::string path)
    : path_(std::move(path)), aside_(path_ + ".released"), lock_(lockPreferences()) {}

SetAside::SetAside() : SetAside(daemonFile(kPreferencesFileName)) {
  StoredPreferences off = readStoredPreferences(path_);
  if (fileExists(aside_)) off = leftByKilledRun(off);
  if (!off.exists) return;
  // A second name for the file comes first, so that at no moment there is none. It is a name of the
  // file itself, though a link may have come into its place.
  if (!fileExists(aside_) && ::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, aside_.c_str(), 0) != 0) {
    failCouldNot(aside_ + ": " + reasonOf(errno));
  }
  is_aside_ = true;
  writeStoredPreferences(path_, switchedOff(off));
}

bool SetAside::putBack() {
  if (!is_aside_) return true;
  is_aside_ = std::rename(aside_.c_str(), path_.c_str()) != 0;
  // Where the file in place was never replaced the two are one, and moving leaves both names.
  if (!is_aside_) ::unlink(aside_.c_str());
  return !is_aside_;
}

// Returns what stands aside or, where the file in its place was edited since, what stands there
// with the switch as it was.
StoredPreferences SetAside::leftByKilledRun(const StoredPreferences& in_place) {
  StoredPreferences left = readStoredPreferences(aside_);
  const bool is_untouched = !in_place.exists || isIdentical(switchedOff(left).dictionary,
                                                            switchedOff(in_place).dictionary);
  if (is_untouched) return left;
  StoredPreferences edited = in_place;
  if (!isEnabled(in_place.dictionary) && isEnabled(left.dictionary)) {
    edited.dictionary.insert_or_assign(keys::kEnabled, true);
    writeStoredPreferences(path_, edited);
  }
  if (::unlink(aside_.c_str()) != 0) failCouldNot(aside_ + ": " + reasonOf(errno));
  return edited;
}

}  // namespace vorlatch::control
