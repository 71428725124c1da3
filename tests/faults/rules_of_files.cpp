// The log, the preferences, the status file, and which process a key means.
#include <sys/stat.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "tests/faults/rules.h"

namespace vorlatch::faults {
namespace {

constexpr std::size_t kPidBytes = 4;

std::int64_t sizeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

bool allHeld(const std::vector<Call>& calls) {
  return std::all_of(calls.begin(), calls.end(), held);
}

std::string textIn(const std::string& buffer) {
  return {buffer.data(), strnlen(buffer.data(), buffer.size())};
}

}  // namespace

// A list is read when every call held, all of it came, and it parsed.
bool Rules::readList(const std::string& path) {
  const std::vector<Call> reading = calls.onFile(path);
  if (reading.empty()) throw Breach(path + " was not read");
  std::int64_t bytes = 0;
  for (const Call& call : reading) {
    if (call.name == "read" && call.result > 0) bytes += call.result;
  }
  const bool is_whole = allHeld(reading) && bytes == sizeOf(path);
  if (!is_whole && !calls.nextIs("parsePropertyList")) return false;
  return calls.next("parsePropertyList").result != 0 && is_whole;
}

// A list is written when all calls on its temporary file and the move held. Those on the file
// itself, to set its mode, have no say.
bool Rules::writeList(const std::string& path) {
  const bool has_form = calls.next("writeXmlPropertyList").result != 0;
  const std::vector<Call> writing = calls.onFile(path);
  return has_form && std::all_of(writing.begin(), writing.end(), [&path](const Call& call) {
           return held(call) || (call.path == path && call.name != "rename");
         });
}

Preferences Rules::load() {
  const bool is_read = readList(places_.preferences);
  return is_read && preferences ? *preferences : Preferences{.is_enabled = false};
}

void Rules::limitLog() {
  const std::int64_t limit_bytes = load().log_limit_bytes;
  const std::vector<Call> logging = calls.onFile(places_.log);
  const bool is_cleared = calls.nextIs("localTimeStamp");
  if (!is_cleared && !allHeld(logging)) return;  // its size could not be asked
  if (is_cleared && !held(logging.front())) throw Breach("a log of unknown size was emptied");
  if (!calls.logExceeds(limit_bytes, is_cleared)) return;
  calls.bindLog(logging, true);
  std::array<char, 32> limit_mb{};
  std::snprintf(limit_mb.data(), limit_mb.size(), "%.1f",
                static_cast<double>(limit_bytes) / 1024 / 1024);
  calls.line(std::string("[守护] 日志大小超过设定限制(") + limit_mb.data() + "MB)，已自动清空。");
}

void Rules::updateStatus(const std::string& key, std::int32_t pid, std::int64_t nice,
                         std::int64_t band) {
  if (pid != 0) {
    status_.insert_or_assign(key, plist::Dictionary{{"pid", pid}, {"n", nice}, {"p", band}});
  } else {
    status_.erase(key);
  }
  if (writeList(places_.status)) status_file_ = status_;
}

void Rules::start() {
  calls.bindLog(calls.onFile(places_.log), false);
  calls.line(std::string(40, '='));
  const std::vector<Call> looking = calls.onFile(places_.preferences);
  // What could not be asked may be there, and is then the user's.
  const bool is_missing = std::any_of(looking.begin(), looking.end(), [](const Call& call) {
    return !held(call) && call.error == ENOENT;
  });
  if (is_missing) {
    if (writeList(places_.preferences)) preferences = presetPreferences();
    calls.line("[配置] 已生成默认预设参数");
  }
  protectItself();
  debounce_due_ms_ = now_ms_ + 150;
  patrol_due_ms_ = now_ms_ + 1'800'000;
  observes_ = calls.next("observeNotification").result != 0;
}

std::vector<std::int32_t> Rules::processIds() {
  const std::int64_t size = calls.next("proc_listpids", {1, 0, 0}).result;
  if (size < 1) return {};
  const std::int64_t bytes = size * static_cast<std::int64_t>(kPidBytes);
  if (calls.memoryLacks()) return {};
  const Call& list = calls.next("proc_listpids", {1, 0, bytes});
  if (list.result < static_cast<std::int64_t>(kPidBytes)) return {};
  std::vector<std::int32_t> pids(static_cast<std::size_t>(list.result) / kPidBytes);
  std::memcpy(pids.data(), list.left.data(), pids.size() * kPidBytes);
  std::erase_if(pids, [](std::int32_t pid) { return pid < 1; });
  return pids;
}

std::string Rules::nameOf(std::int32_t pid, bool must_be_told) {
  const Call& call = calls.next("proc_name", {pid, 256});
  return must_be_told && call.result < 1 ? "" : textIn(call.left);
}

std::string Rules::identifierOf(std::int32_t pid) {
  const Call& call = calls.next("proc_pidpath", {pid, 4096});
  if (call.result < 1) return "";
  const std::string path = textIn(call.left);
  const std::string directory = path.substr(0, path.rfind('/'));
  if (!directory.ends_with(".app") && !directory.ends_with(".appex")) return "";
  const auto cached = cached_identifiers_.find(directory);
  if (cached != cached_identifiers_.end()) return cached->second;
  if (!readList(directory + "/Info.plist")) return "";
  return cached_identifiers_[directory] = places_.identifiers.at(directory);
}

std::int32_t Rules::find(const std::string& key) {
  for (const std::int32_t pid : processIds()) {
    if (nameOf(pid, false) == key || identifierOf(pid) == key) return pid;
  }
  return 0;
}

Rules::Pids Rules::findAll() {
  Pids found;
  for (const std::int32_t pid : processIds()) {
    if (const std::string name = nameOf(pid, true); !name.empty()) found.try_emplace(name, pid);
    if (const std::string id = identifierOf(pid); !id.empty()) found.insert_or_assign(id, pid);
  }
  return found;
}

}  // namespace vorlatch::faults
