// Platform interface for Darwin notifications: named events without payload between processes.
#pragma once

#include "platform/queues.h"

namespace vorlatch::platform {

// Runs the handler on the main thread, inside runMainLoop(), after each post of the name. Posts in
// quick succession may run it only once; a post is lost while nobody observes its name. Call on the
// main thread, before runMainLoop(). Lasts until the process ends. Failure is silent.
void observeNotification(const char* name, Work handler);

// Notifies every observer of the name, in every process. Any process may post. Returns false if the
// platform refused. Safe to call from any thread.
bool postNotification(const char* name);

}  // namespace vorlatch::platform
