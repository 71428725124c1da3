// The size cap of the log.
#pragma once

namespace vorlatch {

// Empties the log when it is larger than the preferences allow, which it reads afresh. A log that
// cannot be looked at is left alone. Called by the pass, on the debounce queue.
void checkLogSizeAndClearIfNeeded();

}  // namespace vorlatch
