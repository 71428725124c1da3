#include "platform/notifications.h"

#include <dispatch/dispatch.h>
#include <notify.h>

#include <utility>

namespace vorlatch::platform {

void observeNotification(const char* name, Work handler) {
  // For the life of the process: neither the token nor the handler is ever given back.
  Work* const kept = new Work(std::move(handler));
  int token = 0;
  notify_register_dispatch(name, &token, dispatch_get_main_queue(), ^(int) {
    (*kept)();
  });
}

bool postNotification(const char* name) {
  return notify_post(name) == NOTIFY_STATUS_OK;
}

}  // namespace vorlatch::platform
