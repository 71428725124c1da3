// Limits the size of the log.
#pragma once

namespace vorlatch {

// Reads the preferences again and empties the log if it is larger than they allow. Does nothing if
// the log cannot be examined. The pass calls it, on the debounce queue.
void checkLogSizeAndClearIfNeeded();

}  // namespace vorlatch
