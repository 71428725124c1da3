#include "tests/faults/fault_injector.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tests/simulated/device.h"

namespace vorlatch::faults {
namespace {

// Sets errno after success, because a successful call may change it.
constexpr int kLeftover = EILSEQ;

std::string bytesOf(const void* buffer, std::size_t length) {
  if (buffer == nullptr) return {};
  return {static_cast<const char*>(buffer), length};
}

struct Answer {
  std::int64_t result;
  int error;
};

Answer carryOut(const Call& call, const Outcome* outcome,
                const std::function<std::int64_t(bool)>& real) {
  const auto act = [&real](bool in_part) {
    errno = 0;
    const std::int64_t result = real(in_part);
    return Answer{.result = result, .error = errno};
  };
  if (outcome == nullptr) return act(false);
  switch (outcome->way) {
    case Way::Refuses:
      break;
    case Way::Acts:
      act(false);
      break;
    case Way::Part: {
      const Answer answer = act(true);
      if (outcome->error == 0) return answer;
      break;
    }
    case Way::Half: {
      const Answer answer = act(false);
      return {.result = answer.result / 2, .error = answer.error};
    }
    case Way::Gone:
      simulated::Device::get().exit(otherProcess(call));
      return act(false);
    case Way::Goes: {
      const Answer answer = act(false);
      simulated::Device::get().exit(otherProcess(call));
      return answer;
    }
  }
  return {.result = outcome->result, .error = outcome->error};
}

}  // namespace

FaultInjector& FaultInjector::get() {
  static FaultInjector& injector = *new FaultInjector;
  return injector;
}

void FaultInjector::watchCalls(bool is_watching) {
  is_watching_ = is_watching;
  tests::interceptFileCalls(is_watching ? this : nullptr);
}

void FaultInjector::watch(const std::function<void()>& piece) {
  watchCalls(true);
  piece();
  watchCalls(false);
}

const Outcome* FaultInjector::planned(const Call& call) {
  const auto fault = std::find_if(faults_.begin(), faults_.end(), [this](const Fault& candidate) {
    return candidate.call == calls_.size();
  });
  if (fault == faults_.end()) return nullptr;
  const std::vector<Outcome> outcomes = outcomesOf(call);
  if (outcomes.empty()) return nullptr;
  outcome_ = outcomes[fault->outcome % outcomes.size()];
  story_ += (story_.empty() ? "" : ", then ") + describe(call) + ": " + outcome_.name;
  return &outcome_;
}

std::int64_t FaultInjector::intercept(const tests::FileCall& call, const Real& real) {
  std::int64_t done = 0;
  const std::int64_t result =
      pass({.name = call.name, .arguments = call.arguments, .path = call.path, .given = call.line},
           nullptr, 0, [&](bool in_part) { return done = real(in_part); });
  const auto written = static_cast<std::size_t>(std::max<std::int64_t>(done, 0));
  if (!call.line.empty()) last().left = call.line.substr(0, written);
  return result;
}

std::int64_t FaultInjector::pass(Call call, void* buffer, std::size_t buffer_bytes,
                                 const std::function<std::int64_t(bool)>& real) {
  const int errno_before = errno;
  // Stops intercepting, so that the real call's own file calls are not recorded.
  watchCalls(false);
  if (buffer != nullptr) call.given = bytesOf(buffer, buffer_bytes);
  const Answer answer = carryOut(call, planned(call), real);
  if (buffer != nullptr) call.left = bytesOf(buffer, buffer_bytes);
  call.result = answer.result;
  call.error = answer.error;
  // Callers set errno to 0 before getpriority() to tell the nice value -1 from an error.
  const bool keeps_errno = call.name == "getpriority";
  calls_.push_back(std::move(call));
  watchCalls(true);
  errno = answer.error != 0 ? answer.error : keeps_errno ? errno_before : kLeftover;
  return answer.result;
}

}  // namespace vorlatch::faults
