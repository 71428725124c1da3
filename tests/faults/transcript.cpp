#include "tests/faults/transcript.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tests/faults/fault_injector.h"

namespace vorlatch::faults {
namespace {

using tests::Answer;
using tests::Buffer;
using tests::Mismatch;

constexpr std::int64_t kErrorStream = 2;

const std::vector<Call>& calls() {
  return FaultInjector::get().calls();
}

// Whether the failure of this call may leave standard error on another file. The failure of
// creating the log is excluded, because the check that follows shows it.
bool decidesAboutTheStream(const Call& call, bool emptying) {
  if (call.name == "dup2") return call.arguments[0] == kErrorStream;
  if (call.name == "open") return (call.arguments[0] & O_CREAT) == 0;
  if (call.name == "lstat") return emptying;
  return call.name == "fstatat" || call.name == "fstat" || call.name == "ftruncate";
}

// Whether the call succeeded as far as the daemon is concerned: it continues short and interrupted
// reads and writes, and ignores the results of close() and unlink().
bool held(const Call& call) {
  if (call.name == "close" || call.name == "unlink") return true;
  if (call.name == "write" && call.result == 0) return false;
  const bool goes_on = call.name == "read" || call.name == "write";
  return call.result >= 0 || (goes_on && call.error == EINTR);
}

bool allHeld(const std::vector<Call>& calls) {
  return std::all_of(calls.begin(), calls.end(), held);
}

std::int64_t sizeOf(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 ? status.st_size : -1;
}

}  // namespace

void Transcript::fail(const std::string& expected) const {
  std::string text = "the oracle says " + expected + ", the daemon did ";
  text += read_ < calls().size() ? describe(calls()[read_]) : "nothing more";
  throw Mismatch(text + " (call " + std::to_string(read_) + ")");
}

const Call& Transcript::next(std::string_view name, const std::vector<std::int64_t>& arguments) {
  if (!nextIs(name) || calls()[read_].arguments != arguments) {
    fail(describe({.name = std::string(name), .arguments = arguments}));
  }
  return calls()[read_++];
}

Answer Transcript::call(std::string_view function, const std::vector<std::int64_t>& arguments,
                        const std::optional<Buffer>& buffer) {
  std::vector<std::int64_t> all = arguments;
  if (buffer) all.push_back(buffer->size);
  const Call& call = next(function, all);
  if (buffer && buffer->holds && call.given != *buffer->holds) {
    --read_;
    fail("other bytes in " + describe(call));
  }
  if (call.error != 0) error_number = call.error;
  return {.result = call.result, .left = call.left};
}

std::uint64_t Transcript::schedules(const std::string& call) {
  if (call.starts_with("observeNotification")) {
    is_observing_ = next("observeNotification").result != 0;
  }
  return now_ns;
}

bool Transcript::nextIs(std::string_view name) const {
  return read_ < calls().size() && calls()[read_].name == name;
}

bool Transcript::lacksMemory() {
  return nextIs("allocate") && calls()[read_++].result == 0;
}

std::vector<Call> Transcript::onFile(const std::string& path) {
  std::vector<Call> found;
  const auto is_on = [&path](const Call& call) {
    return call.path == path || call.path.starts_with(path + ".") || call.path == "/dev/null" ||
           call.name == "flush";
  };
  while (read_ < calls().size() && is_on(calls()[read_])) found.push_back(calls()[read_++]);
  return found;
}

void Transcript::logs(const std::string& line) {
  const std::string stamp = next("localTimeStamp").left;
  const std::string text = "[" + stamp + "] " + line + "\n";
  if (!nextIs("line") || calls()[read_].given != text) fail("the line " + text);
  const Call& written = next("line");
  for (Log& log : logs_) {
    if (log.is_bound) log.text += written.left;
  }
  next("flush");
}

void Transcript::end() const {
  if (read_ != calls().size()) fail("nothing more");
}

std::size_t Transcript::distanceTo(const std::string& line) {
  for (std::size_t at = read_; at < calls().size(); ++at) {
    const Call& call = calls()[at];
    if (call.name == "line" && call.given.ends_with("] " + line + "\n")) return at - read_;
  }
  return std::string::npos;
}

// A list was read if every call succeeded, all bytes came, and it parsed.
bool Transcript::readsList(const std::string& path) {
  const std::vector<Call> reading = onFile(path);
  if (reading.empty()) fail("the reading of " + path);
  std::int64_t bytes = 0;
  for (const Call& call : reading) {
    if (call.name == "read" && call.result > 0) bytes += call.result;
  }
  const bool is_whole = allHeld(reading) && bytes == sizeOf(path);
  if (!is_whole && !nextIs("parsePropertyList")) return false;
  return next("parsePropertyList").result != 0 && is_whole;
}

// A list was written if every call on its temporary file and the rename succeeded. Calls on the
// file itself, which set its mode, do not count.
bool Transcript::writesList(const std::string& path) {
  const bool has_form = next("writeXmlPropertyList").result != 0;
  const std::vector<Call> writing = onFile(path);
  return has_form && std::all_of(writing.begin(), writing.end(), [&path](const Call& call) {
           return held(call) || (call.path == path && call.name != "rename");
         });
}

bool Transcript::findsNoPreferences() {
  const std::vector<Call> looking = onFile(places_.preferences);
  // Only a definite "missing" counts; after any other error there may be a file of the user's.
  return std::any_of(looking.begin(), looking.end(), [](const Call& call) {
    return !held(call) && (call.error == ENOENT || call.error == ENOTDIR);
  });
}

void Transcript::writesPreset(const plist::Dictionary& preset) {
  if (writesList(places_.preferences)) preferences = preset;
}

std::optional<plist::Dictionary> Transcript::readsPreferences() {
  return readsList(places_.preferences) ? preferences : std::nullopt;
}

std::optional<plist::Dictionary> Transcript::readsInfoPlist(const std::string& bundle_directory) {
  if (!readsList(bundle_directory + "/Info.plist")) return std::nullopt;
  return plist::Dictionary{{"CFBundleIdentifier", places_.identifiers.at(bundle_directory)}};
}

void Transcript::writesStatus(const plist::Dictionary& status) {
  if (writesList(places_.status)) status_ = status;
}

void Transcript::opensLog() {
  bindLog(onFile(places_.log), false);
}

bool Transcript::clearsLog(std::int64_t limit_bytes) {
  const std::vector<Call> logging = onFile(places_.log);
  const bool is_cleared = nextIs("localTimeStamp");
  if (!is_cleared && !allHeld(logging)) return false;  // its size is unknown
  if (is_cleared && !held(logging.front())) throw Mismatch("a log of unknown size was emptied");
  if (logExceeds(limit_bytes, is_cleared)) bindLog(logging, true);
  return is_cleared;
}

void Transcript::bindLog(const std::vector<Call>& calls, bool emptying) {
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

}  // namespace vorlatch::faults
