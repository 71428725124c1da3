#include "platform/queues.h"

#include <malloc.h>
#include <pthread.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstring>
#include <deque>
#include <map>
#include <utility>

#include "base/thread_safety.h"

namespace vorlatch::platform {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

// Enough for the deepest property list. Below two megabytes, so that the kernel never backs a stack
// with a huge page; of the rest only pages that were used cost memory.
constexpr std::size_t kStackBytes = std::size_t{1024} * 1024;

// The uptime: CLOCK_MONOTONIC, which stands still while the machine sleeps.
std::uint64_t uptimeNs() {
  return static_cast<std::uint64_t>(nanoseconds(steady_clock::now().time_since_epoch()).count());
}

steady_clock::time_point timePoint(std::uint64_t uptime_ns) {
  const auto latest = static_cast<std::uint64_t>(nanoseconds::max().count());
  return steady_clock::time_point(
      nanoseconds(static_cast<nanoseconds::rep>(std::min(uptime_ns, latest))));
}

std::uint64_t saturatingSum(std::uint64_t a, std::uint64_t b) {
  return a > kNever - b ? kNever : a + b;
}

// What a timer is to its queue. The queue lets go of it when it is cancelled; a call of the handler
// that is under way keeps it until it returns. The leeway is not used: it is there to spare a
// battery, and a wake-up on time is within every leeway.
struct RunningTimer {
  std::uint64_t due_ns;  // guarded by the queue's lock
  const std::uint64_t interval_ns;
  const Work handler;

  // Moves on to the first point of the grid that is yet to come, which merges the fires missed so
  // far into the present one; kNever when there is none.
  void advance(std::uint64_t uptime_ns) {
    const std::uint64_t step = std::max<std::uint64_t>(interval_ns, 1);
    const std::uint64_t missed = (uptime_ns - due_ns) / step;
    due_ns = saturatingSum(due_ns + missed * step, step);
  }
};

using RunningTimerPointer = std::shared_ptr<RunningTimer>;

}  // namespace

class SerialQueue {
 public:
  SerialQueue() = default;
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;
  ~SerialQueue() = delete;  // lives as long as the process

  // Where the system has no thread to give, the work that is sent stays undone.
  void start(const char* label) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
    pthread_attr_setstacksize(&attributes, kStackBytes);
    pthread_t thread{};
    if (pthread_create(&thread, &attributes, &SerialQueue::serve, this) == 0) name(thread, label);
    pthread_attr_destroy(&attributes);
  }

  void send(Work work) {
    const Lock lock(mutex_);
    sent_.push_back({uptimeNs(), std::move(work)});
    if (sent_.size() == 1) changed_.notify_one();
  }

  void add(const RunningTimerPointer& timer) {
    if (timer->due_ns == kNever) return;
    const Lock lock(mutex_);
    const auto place = timers_.emplace(timer->due_ns, timer);
    if (place == timers_.begin()) changed_.notify_one();
  }

  void remove(const RunningTimerPointer& timer) {
    const Lock lock(mutex_);
    const auto [first, last] = timers_.equal_range(timer->due_ns);
    const auto place =
        std::find_if(first, last, [&timer](const auto& entry) { return entry.second == timer; });
    if (place != last) timers_.erase(place);
  }

 private:
  struct Sent {
    std::uint64_t sent_ns;
    Work work;
  };

  static void* serve(void* queue) {
    for (;;) static_cast<SerialQueue*>(queue)->awaitNext()();
  }

  // A thread's name holds 15 characters; the last part of a label tells the queues apart.
  static void name(pthread_t thread, const char* label) {
    const char* dot = std::strrchr(label, '.');
    std::array<char, 16> short_label{};
    std::strncpy(short_label.data(), dot == nullptr ? label : dot + 1, short_label.size() - 1);
    pthread_setname_np(thread, short_label.data());
  }

  // Whatever became ready first comes first, be it sent or due, so that neither starves the other.
  Work awaitNext() {
    Lock lock(mutex_);
    for (;;) {
      const bool timer_first =
          !timers_.empty() && (sent_.empty() || timers_.begin()->first < sent_.front().sent_ns);
      if (!timer_first && !sent_.empty()) return takeSent();
      if (timer_first && timers_.begin()->first <= uptimeNs()) return takeFire();
      if (timers_.empty()) {
        lock.wait(changed_);
      } else {
        lock.waitUntil(changed_, timePoint(timers_.begin()->first));
      }
    }
  }

  Work takeSent() REQUIRES(mutex_) {
    Work work = std::move(sent_.front().work);
    sent_.pop_front();
    return work;
  }

  // The next fire is armed before the handler runs, so that cancelling is taking it out, from
  // inside the handler too.
  Work takeFire() REQUIRES(mutex_) {
    auto entry = timers_.extract(timers_.begin());
    RunningTimerPointer timer = entry.mapped();
    timer->advance(uptimeNs());
    entry.key() = timer->due_ns;
    if (timer->due_ns != kNever) timers_.insert(std::move(entry));
    return [timer = std::move(timer)] { timer->handler(); };
  }

  Mutex mutex_;
  std::condition_variable changed_;
  std::deque<Sent> sent_ GUARDED_BY(mutex_);
  std::multimap<std::uint64_t, RunningTimerPointer> timers_ GUARDED_BY(mutex_);  // by due time
};

class TimerSource {
 public:
  TimerSource(SerialQueue& queue, RunningTimerPointer timer)
      : queue_(queue), timer_(std::move(timer)) {}
  TimerSource(const TimerSource&) = delete;
  TimerSource& operator=(const TimerSource&) = delete;
  ~TimerSource() { queue_.remove(timer_); }

 private:
  SerialQueue& queue_;
  const RunningTimerPointer timer_;
};

void CancelTimer::operator()(TimerSource* source) const {
  delete source;
}

SerialQueue& makeSerialQueue(const char* label) {
  // By default the C library gives each thread a heap of its own, which costs a small daemon more
  // memory than its threads would lose by sharing one.
  static const bool one_heap = mallopt(M_ARENA_MAX, 1) != 0;
  static_cast<void>(one_heap);
  auto* queue = new SerialQueue;
  queue->start(label);
  return *queue;
}

void async(SerialQueue& queue, Work work) {
  queue.send(std::move(work));
}

Timer startTimer(SerialQueue& queue, const TimerSchedule& schedule, Work handler) {
  const std::uint64_t due_ns = saturatingSum(uptimeNs(), schedule.start_ns);
  auto timer = std::make_shared<RunningTimer>(
      RunningTimer{due_ns, schedule.interval_ns, std::move(handler)});
  queue.add(timer);
  return Timer(new TimerSource(queue, std::move(timer)));
}

}  // namespace vorlatch::platform
