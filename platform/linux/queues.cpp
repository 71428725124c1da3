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

// Enough for the deepest property list. Only used pages cost memory, because a stack below two
// megabytes never gets a huge page from the kernel.
constexpr std::size_t kStackBytes = std::size_t{1024} * 1024;

// Returns the uptime: CLOCK_MONOTONIC, which stands still while the machine sleeps.
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

// A timer as its queue sees it. Cancelling it removes it from the queue; a handler that is running
// keeps it alive until it returns. The leeway, which saves battery, is ignored: a fire on time is
// within any leeway.
struct RunningTimer {
  std::uint64_t due_ns;  // guarded by the queue's lock
  const std::uint64_t interval_ns;
  const Work handler;

  // Sets due_ns to the next point of the grid in the future, so that missed fires are merged into
  // the current one; to kNever if there is no such point.
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

  // If the system cannot create a thread, the work sent to this queue never runs.
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

  // Uses the last part of the label, which differs per queue: a thread's name holds 15 characters.
  static void name(pthread_t thread, const char* label) {
    const char* dot = std::strrchr(label, '.');
    std::array<char, 16> short_label{};
    std::strncpy(short_label.data(), dot == nullptr ? label : dot + 1, short_label.size() - 1);
    pthread_setname_np(thread, short_label.data());
  }

  // Waits for the next work item. Sent work and due timers run in the order in which they became
  // ready, so that neither starves the other.
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

  // Schedules the next fire before the handler runs, so that removing the timer from the map always
  // cancels it, even from inside the handler.
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
  // Makes all threads share one heap. The C library's default, one heap per thread, costs a small
  // daemon more memory than sharing would cost its threads.
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
