#include "tests/faults/gate.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "tests/simulated/device.h"

namespace vorlatch::faults {
namespace {

// A call that succeeds may leave anything in errno.
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

Gate& Gate::get() {
  static Gate& gate = *new Gate;
  return gate;
}

void Gate::watchCalls(bool is_watching) {
  is_watching_ = is_watching;
  tests::letTakeFileCalls(is_watching ? this : nullptr);
}

void Gate::watch(const std::function<void()>& piece) {
  watchCalls(true);
  piece();
  watchCalls(false);
}

const Outcome* Gate::planned(const Call& call) {
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

std::int64_t Gate::take(const tests::FileCall& call, const Real& real) {
  std::int64_t done = 0;
  const std::int64_t result =
      pass({.name = call.name, .arguments = call.arguments, .path = call.path, .given = call.line},
           nullptr, 0, [&](bool in_part) { return done = real(in_part); });
  const auto written = static_cast<std::size_t>(std::max<std::int64_t>(done, 0));
  if (!call.line.empty()) last().left = call.line.substr(0, written);
  return result;
}

std::int64_t Gate::pass(Call call, void* buffer, std::size_t buffer_bytes,
                        const std::function<std::int64_t(bool)>& real) {
  const int errno_before = errno;
  // What is asked for and written to the log goes on meanwhile.
  watchCalls(false);
  if (buffer != nullptr) call.given = bytesOf(buffer, buffer_bytes);
  const Answer answer = carryOut(call, planned(call), real);
  if (buffer != nullptr) call.left = bytesOf(buffer, buffer_bytes);
  call.result = answer.result;
  call.error = answer.error;
  // -1 is also a nice value, for which callers look at what is in errno from before.
  const bool keeps_errno = call.name == "getpriority";
  calls_.push_back(std::move(call));
  watchCalls(true);
  errno = answer.error != 0 ? answer.error : keeps_errno ? errno_before : kLeftover;
  return answer.result;
}

}  // namespace vorlatch::faults
