#include "tests/faults/fault_injector.h"

#include <execinfo.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <functional>
#include <span>

namespace vorlatch::faults {
namespace {

using simulated::Device;

// Sets errno after success, because a successful call may change it.
constexpr int kLeftover = EILSEQ;

// Identifies a call by the functions that led to it, as far as they belong to the daemon.
std::uint64_t pathOfThisCall() {
  std::array<void*, 12> frames{};
  const int count = backtrace(frames.data(), static_cast<int>(frames.size()));
  std::uint64_t hash = 0;
  for (void* const frame : std::span(frames).first(static_cast<std::size_t>(count))) {
    hash = hash * 1'000'003 + reinterpret_cast<std::uintptr_t>(frame);
  }
  return hash;
}

std::string kindOf(const tests::FileCall& call) {
  if (call.name == "open" && (call.arguments[0] & O_CREAT) != 0) return "open to create";
  if (call.name == "dup2") return "dup2 " + std::to_string(call.arguments[0]);
  return call.name;
}

}  // namespace

FaultInjector& FaultInjector::get() {
  static FaultInjector& injector = *new FaultInjector;
  return injector;
}

FaultInjector::FaultInjector() {
  Device::get().interference = [this](std::string_view function, int command, std::int32_t pid,
                                      bool has_buffer) {
    return interfere(faults::kindOf(function, command, has_buffer), pid == getpid() ? 0 : pid);
  };
}

void FaultInjector::begin(const std::vector<Fault>& faults) {
  faults_ = faults;
  is_counting_ = true;
}

void FaultInjector::watch(bool is_watching) {
  is_watching_ = is_watching;
  tests::interceptFileCalls(is_watching ? this : nullptr);
}

const Outcome* FaultInjector::next(const std::string& kind, std::int32_t pid) {
  if (!is_watching_ || !is_counting_) return nullptr;
  const std::size_t call = calls_.size();
  const std::vector<Outcome> outcomes = outcomesOf(kind, pid != 0, call);
  calls_.push_back({.path = faults_.empty() ? pathOfThisCall() : 0, .outcomes = outcomes.size()});
  const auto fault = std::find_if(faults_.begin(), faults_.end(),
                                  [call](const Fault& each) { return each.call == call; });
  if (fault == faults_.end() || outcomes.empty()) return nullptr;
  outcome_ = outcomes[fault->outcome % outcomes.size()];
  story_ += (story_.empty() ? "" : ", then ") + kind + ": " + outcome_.name;
  return &outcome_;
}

std::optional<simulated::Script> FaultInjector::interfere(const std::string& kind,
                                                          std::int32_t pid) {
  const Outcome* outcome = next(kind, pid);
  if (outcome == nullptr) return std::nullopt;
  if (outcome->exits_before) Device::get().exit(pid);
  simulated::Script script = scriptOf(kind, *outcome);
  if (outcome->exits_after) script.meanwhile = [pid] { Device::get().exit(pid); };
  return script;
}

std::int64_t FaultInjector::intercept(const tests::FileCall& call, const Real& real) {
  const std::string kind = kindOf(call);
  const Outcome* outcome = next(kind, 0);
  std::int64_t done = 0;
  errno = 0;
  if (outcome == nullptr || outcome->acts || outcome->in_part) {
    done = real(outcome != nullptr && outcome->in_part);
  }
  std::int64_t result = done;
  int error = errno;
  if (outcome != nullptr && outcome->result) {
    result = *outcome->result;
    error = outcome->error;
  }
  std::string written =
      call.line.substr(0, static_cast<std::size_t>(std::max<std::int64_t>(done, 0)));
  Device::get().trace(kind, call.line.empty() ? call.path : call.line,
                      {.result = static_cast<int>(result), .error = error}, std::move(written));
  errno = error != 0 ? error : kLeftover;
  return result;
}

}  // namespace vorlatch::faults
