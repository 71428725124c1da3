#include "tests/random/stage.h"

#include <unistd.h>

#include <filesystem>
#include <set>

#include "daemon/startup.h"
#include "platform/property_list.h"
#include "tests/faults/fault_injector.h"

namespace vorlatch::tests::random {
namespace {

using faults::FaultInjector;

constexpr unsigned kModeOfEveryFile = 0666;

}  // namespace

Stage::Stage()
    : device(story.device),
      files_{.log = story.logFile(),
             .preferences_file = story.preferencesFile(),
             .status_file = story.statusFile()} {}

void Stage::writeDraft(bool as_binary) {
  writeAll(files_.preferences_file, as_binary ? platform::writeBinaryPropertyList(draft)
                                              : platform::writeXmlPropertyList(draft));
  files_.preferences = draft;
  is_edit_waiting_ = true;
}

void Stage::breakPreferences(const std::string& bytes) {
  writeAll(files_.preferences_file, bytes);
  files_.preferences.reset();
  is_edit_waiting_ = true;
}

void Stage::removePreferences() {
  std::filesystem::remove(files_.preferences_file);
  files_.preferences.reset();
  is_edit_waiting_ = true;
}

std::string Stage::bundleDirectory(const std::string& bundle) const {
  return story.rootPath("/Applications/" + bundle);
}

void Stage::installBundle(const std::string& bundle, const plist::Dictionary& info) {
  files_.info_plists[bundleDirectory(bundle)] = info;
  static_cast<void>(story.installApp(bundle, info));
}

void Stage::breakBundle(const std::string& bundle) {
  if (files_.info_plists.erase(bundleDirectory(bundle)) == 0) return;
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

std::size_t Stage::logBytes() const {
  return transcript_ ? transcript_->expectedLog().size() : 0;
}

void Stage::start() {
  transcript_.emplace(files_, readAll(files_.log));
  oracle_.emplace(*transcript_, getpid());
  device.takeCalls();
  FaultInjector::get().watch(true);
  runDaemon();
  FaultInjector::get().watch(false);
  transcript_->begin(device.takeCalls());
  oracle_->started();
  transcript_->end();
  compareFiles();
  if (FaultInjector::get().story().empty() && modeOf(files_.log) != kModeOfEveryFile) {
    throw Mismatch("the log's mode is not 0666");
  }
  if (transcript_->written_preset) draft = *transcript_->written_preset;
  is_edit_waiting_ = false;
  compared_until_ns_ = device.scheduler.nowNs();
  compareTimers();
  run(std::chrono::nanoseconds(0));
}

void Stage::post() {
  if (!oracle_ || !transcript_->isObserving()) return;  // the daemon does not listen
  story.post();
  oracle_->posted();
  is_edit_waiting_ = false;
}

void Stage::run(std::chrono::nanoseconds duration, int items_max) {
  const std::uint64_t end_ns =
      device.scheduler.nowNs() + static_cast<std::uint64_t>(duration.count());
  const std::uint64_t last_item = compared_ + static_cast<std::uint64_t>(items_max);
  device.scheduler.runUntil(end_ns, [this, last_item] {
    FaultInjector::get().watch(false);
    compareLastRan();
    FaultInjector::get().watch(true);
    return compared_ >= last_item;
  });
  FaultInjector::get().watch(false);
  compareLog();
  const std::set<std::string> own{files_.log, files_.preferences_file, files_.status_file};
  for (const auto& entry : std::filesystem::directory_iterator(story.file(""))) {
    if (!transcript_->leavesTemporary() && !own.contains(entry.path())) {
      throw Mismatch("left behind: " + entry.path().filename().string());
    }
  }
}

void Stage::compareLastRan() {
  const auto& ran = device.scheduler.lastRan();
  const std::uint64_t now_ns = device.scheduler.nowNs();
  if (ran.count == compared_) {
    if (now_ns > compared_until_ns_) oracle_->idledUntil(now_ns);
  } else {
    compared_ = ran.count;
    transcript_->begin(device.takeCalls());
    if (ran.queue != nullptr) {
      oracle_->ranQueue(ran.queue->label());
    } else {
      oracle_->ranTimer(ran.timer_id, compared_until_ns_);
    }
    transcript_->end();
    compareFiles();
    compareTimers();
  }
  compared_until_ns_ = now_ns;
}

// What was written must be there whole, and everybody must have access to it.
void Stage::compareFiles() {
  const auto compare = [](const std::string& path, const std::optional<plist::Dictionary>& wanted) {
    if (!wanted) return;
    if (const std::string found = readAll(path); found != platform::writeXmlPropertyList(*wanted)) {
      throw Mismatch("wanted in " + path + ": " + platform::writeXmlPropertyList(*wanted) +
                     "\nfound: " + found);
    }
    if (modeOf(path) != kModeOfEveryFile) throw Mismatch("the mode of " + path + " is not 0666");
  };
  compare(files_.status_file, transcript_->written_status);
  compare(files_.preferences_file, transcript_->written_preset);
}

// The log may have been removed; the daemon then writes to a file without a name.
void Stage::compareLog() const {
  if (!std::filesystem::exists(files_.log)) return;
  if (const std::string log = readAll(files_.log); !transcript_->isLog(log)) {
    throw Mismatch("the log is\n" + log + "and not\n" + transcript_->expectedLog());
  }
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
