#include "platform/queues.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>

#include <utility>

namespace vorlatch::platform {
namespace {

void runAndDelete(void* work) {
  const std::unique_ptr<Work> owned(static_cast<Work*>(work));
  (*owned)();
}

void run(void* work) {
  (*static_cast<Work*>(work))();
}

void deleteWork(void* work) {
  delete static_cast<Work*>(work);
}

// dispatch_time takes a signed offset; a negative one gives a time in the past.
dispatch_time_t startTime(std::uint64_t start_ns) {
  if (start_ns > INT64_MAX) return DISPATCH_TIME_FOREVER;
  return dispatch_time(DISPATCH_TIME_NOW, static_cast<std::int64_t>(start_ns));
}

}  // namespace

class SerialQueue {
 public:
  explicit SerialQueue(const char* label)
      : queue(dispatch_queue_create(label, DISPATCH_QUEUE_SERIAL)) {}
  SerialQueue(const SerialQueue&) = delete;
  SerialQueue& operator=(const SerialQueue&) = delete;
  ~SerialQueue() = delete;  // lives as long as the process

  dispatch_queue_t queue;
};

SerialQueue& makeSerialQueue(const char* label) {
  return *new SerialQueue(label);
}

void async(SerialQueue& queue, Work work) {
  dispatch_async_f(queue.queue, new Work(std::move(work)), runAndDelete);
}

// The cancel handler deletes the work. It runs only after a running event handler has returned.
class TimerSource {
 public:
  TimerSource(SerialQueue& queue, const TimerSchedule& schedule, Work handler)
      : source_(dispatch_source_create(DISPATCH_SOURCE_TYPE_TIMER, 0, 0, queue.queue)) {
    dispatch_set_context(source_, new Work(std::move(handler)));
    dispatch_source_set_event_handler_f(source_, run);
    dispatch_source_set_cancel_handler_f(source_, deleteWork);
    dispatch_source_set_timer(source_, startTime(schedule.start_ns), schedule.interval_ns,
                              schedule.leeway_ns);
    dispatch_resume(source_);
  }
  TimerSource(const TimerSource&) = delete;
  TimerSource& operator=(const TimerSource&) = delete;
  ~TimerSource() {
    dispatch_source_cancel(source_);
    dispatch_release(source_);
  }

 private:
  dispatch_source_t source_;
};

static_assert(kNever == DISPATCH_TIME_FOREVER);

void CancelTimer::operator()(TimerSource* source) const {
  delete source;
}

Timer startTimer(SerialQueue& queue, const TimerSchedule& schedule, Work handler) {
  return Timer(new TimerSource(queue, schedule, std::move(handler)));
}

void runMainLoop() {
  CFRunLoopRun();  // also serves the main dispatch queue
}

}  // namespace vorlatch::platform
