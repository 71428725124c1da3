#include "tests/random/stage.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>

#include "daemon/startup.h"
#include "platform/property_list.h"

namespace vorlatch::tests::random {

bool WatchedFile::wasReplaced() {
  struct stat now {};
  if (stat(path_.c_str(), &now) != 0) return false;
  struct stat before {};
  const bool known = seen_ && fstat(seen_->get(), &before) == 0;
  if (known && before.st_ino == now.st_ino && before.st_dev == now.st_dev) return false;
  seen_.emplace(open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  return true;
}

Stage::Stage() : device(story.device), status_file(story.statusFile()) {}

void Stage::writeDraft(bool as_binary) {
  writeAll(story.preferencesFile(), as_binary ? platform::writeBinaryPropertyList(draft)
                                              : platform::writeXmlPropertyList(draft));
  files.preferences = draft;
  files.preferences_in_place = true;
}

void Stage::breakPreferences(const std::string& bytes) {
  writeAll(story.preferencesFile(), bytes);
  files.preferences.reset();
  files.preferences_in_place = true;
}

void Stage::removePreferences() {
  std::filesystem::remove(story.preferencesFile());
  files.preferences.reset();
  files.preferences_in_place = false;
}

std::string Stage::bundleDirectory(const std::string& bundle) const {
  return story.rootPath("/Applications/" + bundle);
}

void Stage::installBundle(const std::string& bundle, const plist::Dictionary& info) {
  files.info_plists[bundleDirectory(bundle)] = info;
  static_cast<void>(story.installApp(bundle, info));
}

void Stage::breakBundle(const std::string& bundle) {
  if (files.info_plists.erase(bundleDirectory(bundle)) == 0) return;
  writeAll(bundleDirectory(bundle) + "/Info.plist", "no property list");
}

simulated::Process* Stage::newest(const std::string& name) const {
  for (const simulated::Process& process : device.processes()) {
    if (process.name == name && !process.is_zombie) return device.find(process.pid);
  }
  return nullptr;
}

void Stage::calmKernel() {
  device.clearScripts();
  device.kernel.caller_is_privileged = true;
  for (const simulated::Process& process : device.processes()) {
    if (simulated::Process* running = device.find(process.pid)) {
      running->overriding_nice.reset();
      running->overriding_band.reset();
    }
  }
}

void Stage::start() {
  record_.emplace(files, story.logFile());
  oracle_.emplace(*record_, getpid());
  status_file.wasReplaced();
  device.takeCalls();
  runDaemon();
  record_->begin(device.takeCalls());
  oracle_->started();
  record_->end();
  if (modeOf(story.logFile()) != 0666) throw Mismatch("the log's mode is not 0666");
  if (!files.preferences_in_place) {
    draft = Oracle::preset();
    if (readAll(story.preferencesFile()) != platform::writeXmlPropertyList(draft) ||
        modeOf(story.preferencesFile()) != 0666) {
      throw Mismatch("the preset was not written, or not for all");
    }
    files.preferences = draft;
    files.preferences_in_place = true;
  }
  compared_until_ns_ = device.scheduler.nowNs();
  compareTimers();
  run(std::chrono::nanoseconds(0));
}

void Stage::post() {
  if (!oracle_) return;  // the daemon is not listening yet
  story.post();
  oracle_->posted();
}

void Stage::run(std::chrono::nanoseconds duration, int pieces_max) {
  const std::uint64_t end_ns =
      device.scheduler.nowNs() + static_cast<std::uint64_t>(duration.count());
  const std::uint64_t last_piece = compared_ + static_cast<std::uint64_t>(pieces_max);
  device.scheduler.runUntil(end_ns, [this, last_piece] {
    compareLastRan();
    return compared_ >= last_piece;
  });
}

void Stage::compareLastRan() {
  const auto& ran = device.scheduler.lastRan();
  const std::uint64_t now_ns = device.scheduler.nowNs();
  if (ran.count == compared_) {
    if (now_ns > compared_until_ns_) oracle_->idledUntil(now_ns);
  } else {
    compared_ = ran.count;
    record_->begin(device.takeCalls());
    if (ran.queue != nullptr) {
      oracle_->ranQueue(ran.queue->label());
    } else {
      oracle_->ranTimer(ran.timer_id, compared_until_ns_);
    }
    record_->end();
    compareStatusFile();
    compareTimers();
  }
  compared_until_ns_ = now_ns;
}

// The status file must be written whole, with mode 0666, and exactly as often as the rules say.
void Stage::compareStatusFile() {
  const bool is_wanted = record_->statusWrites() != status_writes_;
  status_writes_ = record_->statusWrites();
  if (status_file.wasReplaced() != is_wanted) {
    throw Mismatch(is_wanted ? "the status file was not written" : "the status file was written");
  }
  if (!is_wanted) return;
  const std::string wanted = platform::writeXmlPropertyList(oracle_->status());
  const std::string found = readAll(status_file.path());
  if (found != wanted) {
    throw Mismatch("wanted in the status file: " + wanted + "\nfound in it: " + found);
  }
  if (modeOf(status_file.path()) != 0666) throw Mismatch("the status file's mode is not 0666");
}

void Stage::compareTimers() {
  const auto& found = device.scheduler.timers();
  const auto& wanted = oracle_->timers();
  bool same = found.size() == wanted.size();
  for (std::size_t i = 0; same && i < found.size(); ++i) {
    const auto entry = wanted.find(found[i]->id);
    same = entry != wanted.end() && entry->second.due_ns == found[i]->due_ns &&
           entry->second.interval_ns == found[i]->interval_ns &&
           found[i]->queue->label() == "com.zel.vorlatch.debounce";
  }
  if (same) return;
  std::string text = "wanted timers:";
  for (const auto& [id, timer] : wanted) {
    text += " " + std::to_string(id) + " at " + std::to_string(timer.due_ns);
  }
  text += "\nfound timers: ";
  for (const auto& timer : found) {
    text += " " + std::to_string(timer->id) + " at " + std::to_string(timer->due_ns);
  }
  throw Mismatch(text);
}

}  // namespace vorlatch::tests::random
