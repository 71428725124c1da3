// Virtual time, and queues and timers on it. One thread runs all work: by due time, then in the
// order of sending. With a seed, the scheduler picks randomly among the ready items, so that a test
// can explore different interleavings of the queues.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "platform/queues.h"

namespace vorlatch::platform {

class SerialQueue {
 public:
  explicit SerialQueue(std::string label) : label_(std::move(label)) {}
  [[nodiscard]] const std::string& label() const { return label_; }

 private:
  friend class Scheduler;
  struct Sent {
    std::uint64_t at_ns;
    std::uint64_t order;
    Work work;
  };
  std::string label_;
  std::deque<Sent> sent_;
};

class TimerSource {
 public:
  SerialQueue* queue;
  std::uint64_t due_ns;  // kNever once a one-shot timer has fired
  std::uint64_t interval_ns;
  int id;
  std::uint64_t order;
  std::shared_ptr<Work> handler;  // shared, so that a handler may cancel its own timer
};

class Scheduler {
 public:
  SerialQueue& makeQueue(const std::string& label);
  void send(SerialQueue& queue, Work work);
  TimerSource* start(SerialQueue& queue, const TimerSchedule& schedule, Work handler);
  void cancel(TimerSource* source);

  // Runs work and advances time until `end_ns`, or until `done` returns true, which it calls before
  // each work item. Returns the last result of `done`.
  bool runUntil(
      std::uint64_t end_ns, const std::function<bool()>& done = [] { return false; });
  // Advances time inside a work item, so that nothing else runs meanwhile.
  void spend(std::uint64_t duration_ns) { now_ns_ += duration_ns; }

  [[nodiscard]] std::uint64_t nowNs() const { return now_ns_; }
  [[nodiscard]] std::size_t timerCount() const { return timers_.size(); }
  [[nodiscard]] const std::vector<std::unique_ptr<TimerSource>>& timers() const { return timers_; }
  // The most recent work item: its number, and the queue or timer it came from.
  struct Ran {
    std::uint64_t count = 0;
    const SerialQueue* queue = nullptr;  // null for a timer
    int timer_id = 0;
  };
  [[nodiscard]] const Ran& lastRan() const { return last_ran_; }
  void shuffleWith(std::uint64_t seed) { shuffle_.emplace(seed); }

 private:
  struct Ready {
    std::uint64_t due_ns;
    std::uint64_t order;
    SerialQueue* queue;  // the queue whose first item it is, or null for a timer
    TimerSource* timer;
  };
  [[nodiscard]] std::vector<Ready> readyNow() const;
  const Ready& choose(const std::vector<Ready>& ready);
  void run(const Ready& chosen);

  std::vector<std::unique_ptr<SerialQueue>> queues_;
  std::vector<std::unique_ptr<TimerSource>> timers_;
  std::optional<std::mt19937_64> shuffle_;
  std::uint64_t now_ns_ = 0;
  std::uint64_t next_order_ = 0;
  int next_timer_id_ = 1;
  Ran last_ran_;
};

}  // namespace vorlatch::platform
