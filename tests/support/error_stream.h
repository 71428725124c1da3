// The error stream as it was when a program began, for what must not go to the daemon's log: the
// daemon reopens the standard streams on it.
#pragma once

namespace vorlatch::tests {

// A descriptor of it. The sanitizers report there from now on.
int keepErrorStream();

}  // namespace vorlatch::tests
