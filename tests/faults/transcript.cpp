#include "tests/faults/transcript.h"

#include <algorithm>
#include <cerrno>

#include "tests/faults/gate.h"

namespace vorlatch::faults {
namespace {

constexpr std::int64_t kErrorStream = 2;

const std::vector<Call>& calls() {
  return Gate::get().calls();
}

// Whether it is for this call that standard error is, or is not, the log.
bool decidesAboutTheStream(const Call& call) {
  if (call.name == "dup2") return call.arguments[0] == kErrorStream;
  if (call.name == "open") return call.error != EEXIST;  // what is created may be there
  return call.name == "lstat" || call.name == "fstatat" || call.name == "fstat" ||
         call.name == "ftruncate";
}

}  // namespace

bool held(const Call& call) {
  if (call.name == "close" || call.name == "unlink") return true;
  if (call.name == "write" && call.result == 0) return false;
  const bool goes_on = call.name == "read" || call.name == "write";
  return call.result >= 0 || (goes_on && call.error == EINTR);
}

void Transcript::fail(const std::string& expected) const {
  std::string text = "the rules say " + expected + ", the daemon did ";
  text += read_ < calls().size() ? describe(calls()[read_]) : "nothing more";
  throw Breach(text + " (call " + std::to_string(read_) + ")");
}

const Call& Transcript::next(std::string_view name, const std::vector<std::int64_t>& arguments) {
  if (!nextIs(name) || calls()[read_].arguments != arguments) {
    fail(describe({.name = std::string(name), .arguments = arguments}));
  }
  return calls()[read_++];
}

const Call& Transcript::nextGiving(std::string_view name,
                                   const std::vector<std::int64_t>& arguments,
                                   const std::vector<std::int32_t>& record) {
  const Call& call = next(name, arguments);
  std::string bytes;
  for (const std::int32_t number : record) {
    bytes.append(reinterpret_cast<const char*>(&number), sizeof(number));
  }
  if (call.given != bytes) {
    --read_;
    fail("other bytes in " + describe(call));
  }
  return call;
}

bool Transcript::nextIs(std::string_view name) const {
  return read_ < calls().size() && calls()[read_].name == name;
}

bool Transcript::memoryLacks() {
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

void Transcript::line(const std::string& message) {
  const std::string stamp = next("localTimeStamp").left;
  const std::string text = "[" + stamp + "] " + message + "\n";
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

void Transcript::bindLog(const std::vector<Call>& calls, bool emptying) {
  const bool is_open = std::any_of(calls.begin(), calls.end(), [](const Call& call) {
    return !held(call) && call.error != ENOENT && decidesAboutTheStream(call);
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
  if (logs_.empty()) throw Breach(first ? "the log was not emptied" : "the log was emptied");
  return claimed;
}

bool Transcript::isLog(const std::string& bytes) const {
  return std::any_of(logs_.begin(), logs_.end(),
                     [&bytes](const Log& log) { return log.text == bytes; });
}

}  // namespace vorlatch::faults
