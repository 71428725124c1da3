#include "tests/oracle/transcript.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

namespace vorlatch::tests {
namespace {

using simulated::Call;

constexpr std::size_t kShownBefore = 6;

// Formats the buffer and its size as the device does, which shows only whether a long buffer is
// zeroed. Returns nothing for a short buffer with unknown contents.
std::string textOf(const Buffer& buffer) {
  constexpr std::int64_t kLongestShown = 32;
  std::string text = "null";
  if (buffer.size > kLongestShown) {
    text = buffer.holds ? "zeros" : "buffer";
  } else if (buffer.size > 0) {
    if (!buffer.holds) return "";
    text = simulated::hexGroups(*buffer.holds);
  }
  return text + ", " + std::to_string(buffer.size) + ')';
}

// Whether the failure of this call may leave standard error on another file. The failure of
// creating the log is excluded, because the check that follows shows it.
bool decidesAboutTheStream(const Call& call, bool emptying) {
  if (call.function == "lstat") return emptying;
  const std::vector<std::string> deciding{"dup2 2", "open", "fstatat", "fstat", "ftruncate"};
  return std::find(deciding.begin(), deciding.end(), call.function) != deciding.end();
}

// Whether the call succeeded as far as the daemon is concerned: it continues short and interrupted
// reads and writes, and ignores the results of close() and unlink().
bool held(const Call& call) {
  const auto& [result, error] = call.answer;
  if (call.function == "close" || call.function == "unlink") return true;
  if (call.function == "write" && result == 0) return false;
  const bool goes_on = call.function == "read" || call.function == "write";
  return result >= 0 || (goes_on && error == EINTR);
}

bool allHeld(const std::vector<Call>& calls) {
  return std::all_of(calls.begin(), calls.end(), held);
}

std::int64_t sizeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

}  // namespace

void Transcript::begin(std::vector<Call> calls) {
  calls_ = std::move(calls);
  next_ = 0;
  written_status.reset();
  written_preset.reset();
}

void Transcript::end() const {
  if (next_ != calls_.size()) fail("the end of this work");
}

bool Transcript::nextIs(std::string_view function) const {
  return next_ < calls_.size() && calls_[next_].function == function;
}

bool Transcript::isNext(const std::string& scheduling_call) {
  return next_ < calls_.size() && calls_[next_].text.starts_with(scheduling_call);
}

// The device appends the result to the text of a kernel call.
const Call& Transcript::take(std::string_view function, const std::string& text) {
  const bool fits = nextIs(function) && isNext(text) &&
                    (calls_[next_].text.size() == text.size() || text.ends_with(", ") ||
                     calls_[next_].text.compare(text.size(), 3, " = ") == 0);
  if (!fits) fail(text.empty() ? std::string(function) : text);
  const Call& call = calls_[next_++];
  if (call.answer.error != 0) error_number = call.answer.error;
  return call;
}

Answer Transcript::call(std::string_view function, const std::vector<std::int64_t>& arguments,
                        const std::optional<Buffer>& buffer) {
  std::string text = std::string(function) + '(';
  for (const std::int64_t argument : arguments) {
    if (!text.ends_with('(')) text += ", ";
    text += argument == getpid() ? "self" : std::to_string(argument);
  }
  const Call& called = take(function, text + (buffer ? ", " + textOf(*buffer) : ")"));
  return {.result = called.answer.result, .left = called.left};
}

std::uint64_t Transcript::schedules(const std::string& text) {
  const Call& call = take(text.substr(0, text.find('(')), text);
  if (call.function == "observeNotification") is_observing_ = call.answer.result == 0;
  return call.at_ns;
}

void Transcript::logs(const std::string& line) {
  if (!nextIs("localTimeStamp")) fail(line);
  const std::string text = "[" + calls_[next_++].text + "] " + line + "\n";
  const Call& written = take("line", text);
  for (Log& log : logs_) {
    if (log.is_bound) log.text += written.left;
  }
  if (!nextIs("flush")) fail("a flush");
  ++next_;
}

Transcript::Calls Transcript::onFile(const std::string& path) {
  Calls found;
  const auto is_on = [&path](const Call& call) {
    return call.text == path || call.text.starts_with(path + ".") || call.text == "/dev/null" ||
           call.function == "flush";
  };
  for (; next_ < calls_.size() && is_on(calls_[next_]); ++next_) {
    found.push_back(calls_[next_]);
    leaves_temporary_ |= found.back().function == "unlink" && found.back().answer.result != 0;
  }
  return found;
}

// A list was read if every call succeeded, all bytes came, and it parsed.
bool Transcript::readsList(const std::string& path, bool is_list) {
  const Calls reading = onFile(path);
  if (reading.empty()) fail("the reading of " + path);
  std::int64_t bytes = 0;
  bool is_at_end = true;  // the last read found the end of the file
  for (const Call& call : reading) {
    if (call.function != "read") continue;
    bytes += std::max(call.answer.result, 0);
    is_at_end = call.answer.result == 0;
  }
  if (allHeld(reading) && !is_at_end) fail("the rest of " + path);
  const bool is_whole = allHeld(reading) && bytes == sizeOf(path);
  if (!(is_whole && is_list) && !nextIs("parsePropertyList")) return false;
  return take("parsePropertyList", "").answer.result != 0 && is_whole && is_list;
}

// A list is written if every call on its temporary file and the rename succeeded. Calls on the file
// itself, which set its mode, do not count. After a failure the old file must stay.
bool Transcript::writesList(const std::string& path) {
  const bool has_form = take("writeXmlPropertyList", "").answer.result != 0;
  const Calls writing = onFile(path);
  const bool is_written =
      has_form && std::all_of(writing.begin(), writing.end(), [&path](const Call& call) {
        return held(call) || (call.text == path && call.function != "rename");
      });
  const bool is_replaced = std::any_of(writing.begin(), writing.end(), [](const Call& call) {
    return call.function == "rename" && held(call);
  });
  if (is_replaced != is_written) fail(path + (is_written ? " replaced" : " as it was"));
  return is_written;
}

bool Transcript::findsNoPreferences() {
  const Calls looking = onFile(files_.preferences_file);
  // Only a definite "missing" counts; after any other error there may be a file of the user's.
  return std::any_of(looking.begin(), looking.end(), [](const Call& call) {
    return !held(call) && (call.answer.error == ENOENT || call.answer.error == ENOTDIR);
  });
}

void Transcript::writesPreset(const plist::Dictionary& preset) {
  if (writesList(files_.preferences_file)) files_.preferences = written_preset = preset;
}

std::optional<plist::Dictionary> Transcript::readsPreferences() {
  const bool is_read = readsList(files_.preferences_file, files_.preferences.has_value());
  return is_read ? files_.preferences : std::nullopt;
}

std::optional<plist::Dictionary> Transcript::readsInfoPlist(const std::string& bundle_directory) {
  const auto info = files_.info_plists.find(bundle_directory);
  const bool is_list = info != files_.info_plists.end();
  if (!readsList(bundle_directory + "/Info.plist", is_list)) return std::nullopt;
  return info->second;
}

void Transcript::writesStatus(const plist::Dictionary& status) {
  if (writesList(files_.status_file)) written_status = status;
}

bool Transcript::clearsLog(std::int64_t limit_bytes) {
  const Calls logging = onFile(files_.log);
  const bool is_cleared = nextIs("localTimeStamp");
  if (!is_cleared && !allHeld(logging)) return false;  // its size is unknown
  if (is_cleared && !held(logging.front())) throw Mismatch("a log of unknown size was emptied");
  if (logExceeds(limit_bytes, is_cleared)) bindLog(logging, true);
  return is_cleared;
}

void Transcript::bindLog(const Calls& calls, bool emptying) {
  const bool is_open = std::any_of(calls.begin(), calls.end(), [emptying](const Call& call) {
    return !held(call) && decidesAboutTheStream(call, emptying);
  });
  std::vector<Log> after;
  for (const Log& log : logs_) {
    after.push_back({.text = emptying ? "" : log.text, .is_bound = true});
    if (!is_open) continue;
    after.push_back({.text = after.back().text, .is_bound = false});
    after.push_back({.text = log.text, .is_bound = false});
    after.push_back({.text = log.text, .is_bound = log.is_bound});
  }
  logs_ = after;
}

bool Transcript::logExceeds(std::int64_t bytes, bool claimed) {
  const auto exceeds = [bytes](const Log& log) {
    return static_cast<std::int64_t>(log.text.size()) > bytes;
  };
  const bool first = exceeds(logs_.front());
  std::erase_if(logs_, [&](const Log& log) { return exceeds(log) != claimed; });
  if (logs_.empty()) throw Mismatch(first ? "the log was not emptied" : "the log was emptied");
  return claimed;
}

bool Transcript::isLog(const std::string& bytes) const {
  return std::any_of(logs_.begin(), logs_.end(),
                     [&bytes](const Log& log) { return log.text == bytes; });
}

void Transcript::fail(const std::string& wanted) const {
  std::string text = "wanted: " + wanted + "\nfound:  ";
  text += next_ == calls_.size() ? "the end of this work"
                                 : calls_[next_].function + ' ' + calls_[next_].text;
  const std::size_t first = next_ - std::min(next_, kShownBefore);
  for (std::size_t i = first; i < next_; ++i) {
    text += (i == first ? "\nafter:  " : "\n        ") + calls_[i].text;
  }
  throw Mismatch(text);
}

}  // namespace vorlatch::tests
