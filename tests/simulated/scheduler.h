// Virtual time and the queues that live in it. One thread runs everything: what is ready runs in
// the order in which it became due, then in the order in which it was sent; a seed shuffles what is
// ready at once, so that a story can be told with the queues interleaved differently.
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
  TimerSource(SerialQueue& timer_queue, std::uint64_t due, const TimerSchedule& schedule,
              int number, Work work)
      : queue(&timer_queue),
        due_ns(due),
        interval_ns(schedule.interval_ns),
        id(number),
        handler(std::make_shared<Work>(std::move(work))) {}

  SerialQueue* queue;
  std::uint64_t due_ns;  // kNever once a timer that does not repeat has fired
  std::uint64_t interval_ns;
  int id;
  std::uint64_t order = 0;
  std::shared_ptr<Work> handler;  // shared, so that a handler may cancel its own timer
};

class Scheduler {
 public:
  SerialQueue& makeQueue(const std::string& label);
  void send(SerialQueue& queue, Work work);
  TimerSource* start(SerialQueue& queue, const TimerSchedule& schedule, Work handler);
  void cancel(TimerSource* source);

  // Runs what is ready and lets time pass to what is due next, until `end_ns` or until `done`,
  // asked before each piece of work, is true. Gives what `done` says in the end.
  bool runUntil(
      std::uint64_t end_ns, const std::function<bool()>& done = [] { return false; });
  // Time that passes inside a piece of work: nothing else runs meanwhile.
  void spend(std::uint64_t duration_ns) { now_ns_ += duration_ns; }

  [[nodiscard]] std::uint64_t nowNs() const { return now_ns_; }
  [[nodiscard]] std::size_t timerCount() const { return timers_.size(); }
  [[nodiscard]] const std::vector<std::unique_ptr<TimerSource>>& timers() const { return timers_; }
  // The piece of work that ran last: the how many-th, and from which queue or by which timer.
  struct Ran {
    std::uint64_t count = 0;
    const SerialQueue* queue = nullptr;  // null when it was a timer's
    int timer_id = 0;
  };
  [[nodiscard]] const Ran& lastRan() const { return last_ran_; }
  void shuffleWith(std::uint64_t seed) { shuffle_.emplace(seed); }

 private:
  struct Ready {
    std::uint64_t due_ns;
    std::uint64_t order;
    SerialQueue* queue;  // whose first piece of work it is, or null
    TimerSource* timer;
  };
  [[nodiscard]] std::vector<Ready> readyNow() const;
  const Ready& choose(const std::vector<Ready>& ready);
  void run(const Ready& chosen);
  [[nodiscard]] std::uint64_t nextDueNs() const;

  std::vector<std::unique_ptr<SerialQueue>> queues_;
  std::vector<std::unique_ptr<TimerSource>> timers_;
  std::optional<std::mt19937_64> shuffle_;
  std::uint64_t now_ns_ = 0;
  std::uint64_t next_order_ = 0;
  int next_timer_id_ = 1;
  Ran last_ran_;
};

}  // namespace vorlatch::platform
