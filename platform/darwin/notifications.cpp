#include "platform/notifications.h"

#include <dispatch/dispatch.h>
#include <notify.h>

#include <utility>

namespace vorlatch::platform {

void observeNotification(const char* name, Work handler) {
  // Neither the token nor the handler is ever freed: they last until the process ends.
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
