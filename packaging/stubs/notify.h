/* The part of <notify.h> that platform/darwin uses, for a build without Apple's SDK. */
#pragma once

#include <dispatch/dispatch.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define NOTIFY_STATUS_OK 0

typedef void (^notify_handler_t)(int token);

uint32_t notify_post(const char* name);
uint32_t notify_register_dispatch(const char* name, int* out_token, dispatch_queue_t queue,
                                  notify_handler_t handler);

#ifdef __cplusplus
}
#endif
