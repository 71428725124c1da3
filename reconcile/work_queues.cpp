#include "reconcile/work_queues.h"

namespace vorlatch {

void makeWorkQueues() {
  debounceQueue();
  workerQueue();
}

platform::SerialQueue& debounceQueue() {
  static platform::SerialQueue& queue = platform::makeSerialQueue("com.zel.vorlatch.debounce");
  return queue;
}

platform::SerialQueue& workerQueue() {
  static platform::SerialQueue& queue = platform::makeSerialQueue("com.zel.vorlatch.worker");
  return queue;
}

}  // namespace vorlatch
