#include "tests/simulated/scheduler.h"

#include <algorithm>
#include <tuple>
#include <utility>

namespace vorlatch::platform {
namespace {

// The sum, or kNever if it overflows.
std::uint64_t later(std::uint64_t from_ns, std::uint64_t by_ns) {
  return by_ns > kNever - from_ns ? kNever : from_ns + by_ns;
}

}  // namespace

SerialQueue& Scheduler::makeQueue(const std::string& label) {
  return *queues_.emplace_back(std::make_unique<SerialQueue>(label));
}

void Scheduler::send(SerialQueue& queue, Work work) {
  queue.sent_.push_back({.at_ns = now_ns_, .order = next_order_++, .work = std::move(work)});
}

TimerSource* Scheduler::start(SerialQueue& queue, const TimerSchedule& schedule, Work handler) {
  return timers_
      .emplace_back(std::make_unique<TimerSource>(
          TimerSource{.queue = &queue,
                      .due_ns = later(now_ns_, schedule.start_ns),
                      .interval_ns = schedule.interval_ns,
                      .id = next_timer_id_++,
                      .order = next_order_++,
                      .handler = std::make_shared<Work>(std::move(handler))}))
      .get();
}

void Scheduler::cancel(TimerSource* source) {
  std::erase_if(timers_, [source](const auto& timer) { return timer.get() == source; });
}

bool Scheduler::runUntil(std::uint64_t end_ns, const std::function<bool()>& done) {
  while (!done()) {
    const std::vector<Ready> ready = readyNow();
    if (!ready.empty()) {
      run(choose(ready));
      continue;
    }
    std::uint64_t next_ns = kNever;
    for (const auto& timer : timers_) next_ns = std::min(next_ns, timer->due_ns);
    if (next_ns > end_ns || next_ns == kNever) {
      now_ns_ = std::max(now_ns_, end_ns);
      return done();
    }
    now_ns_ = next_ns;
  }
  return true;
}

std::vector<Scheduler::Ready> Scheduler::readyNow() const {
  std::vector<Ready> ready;
  for (const auto& queue : queues_) {
    if (queue->sent_.empty()) continue;
    const auto& first = queue->sent_.front();
    ready.push_back(
        {.due_ns = first.at_ns, .order = first.order, .queue = queue.get(), .timer = nullptr});
  }
  for (const auto& timer : timers_) {
    if (timer->due_ns > now_ns_) continue;
    ready.push_back(
        {.due_ns = timer->due_ns, .order = timer->order, .queue = nullptr, .timer = timer.get()});
  }
  return ready;
}

const Scheduler::Ready& Scheduler::choose(const std::vector<Ready>& ready) {
  if (shuffle_) {
    return ready[std::uniform_int_distribution<std::size_t>(0, ready.size() - 1)(*shuffle_)];
  }
  return *std::min_element(ready.begin(), ready.end(), [](const Ready& a, const Ready& b) {
    return std::tie(a.due_ns, a.order) < std::tie(b.due_ns, b.order);
  });
}

void Scheduler::run(const Ready& chosen) {
  last_ran_ = {.count = last_ran_.count + 1,
               .queue = chosen.queue,
               .timer_id = chosen.timer != nullptr ? chosen.timer->id : 0};
  if (chosen.queue != nullptr) {
    const Work work = std::move(chosen.queue->sent_.front().work);
    chosen.queue->sent_.pop_front();
    work();
    return;
  }
  TimerSource& timer = *chosen.timer;
  if (timer.interval_ns == kNever) {
    timer.due_ns = kNever;
  } else {
    const std::uint64_t missed = (now_ns_ - timer.due_ns) / timer.interval_ns;
    timer.due_ns = later(timer.due_ns, (missed + 1) * timer.interval_ns);
  }
  timer.order = next_order_++;
  const std::shared_ptr<Work> handler = timer.handler;
  (*handler)();
}

}  // namespace vorlatch::platform
