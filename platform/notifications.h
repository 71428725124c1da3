// The seam for Darwin notifications: named events without payload between processes.
#pragma once

#include "platform/queues.h"

namespace vorlatch::platform {

// Runs the handler on the main thread, inside runMainLoop(), after each post of the name; posts in
// a burst may come as one, and a post made while nobody observes is lost. Called on the main
// thread, before runMainLoop(); holds for the life of the process. Failure is silent.
void observeNotification(const char* name, Work handler);

// Tells every observer of the name, in every process. Any process may post. Safe to call from any
// thread; false when the platform refused.
bool postNotification(const char* name);

}  // namespace vorlatch::platform
