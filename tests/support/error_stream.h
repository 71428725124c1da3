// Keeps the program's original standard error for output that must not reach the daemon's log: the
// daemon reopens the standard streams on its log.
#pragma once

namespace vorlatch::tests {

// Returns a duplicate of the descriptor, and makes the sanitizers report to it.
int keepErrorStream();

}  // namespace vorlatch::tests
