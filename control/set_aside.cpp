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
  // Creates a hard link first, so that the file exists under a name at every moment. linkat with
  // flag 0 does not follow a symbolic link that somebody may have put in its place.
  if (!fileExists(aside_) && ::linkat(AT_FDCWD, path_.c_str(), AT_FDCWD, aside_.c_str(), 0) != 0) {
    failCouldNot(aside_ + ": " + reasonOf(errno));
  }
  is_aside_ = true;
  writeStoredPreferences(path_, switchedOff(off));
}

bool SetAside::putBack() {
  if (!is_aside_) return true;
  is_aside_ = std::rename(aside_.c_str(), path_.c_str()) != 0;
  // If the file was never replaced, both names are the same file, and rename leaves both.
  if (!is_aside_) ::unlink(aside_.c_str());
  return !is_aside_;
}

// Restores what a killed run set aside. Returns it or, if the file in its place was edited since,
// returns that file with the old switch.
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
