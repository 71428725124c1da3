// A process's jetsam band: when memory is short, the kernel kills the lowest bands first.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Higher than every known kernel's bands. If a kernel refuses it, adaptedBand gives no other.
inline constexpr std::int32_t kBandNeverAdapted = 999;

// Returns 0, or -1 and sets errno. `flags` is 0 or MEMORYSTATUS_SET_PRIORITY_ASSERTION.
int setJetsamPriority(std::int32_t pid, std::int32_t band, std::uint32_t flags);

// Makes the process unmanaged, because the system would move a managed process, and sets its band.
// If the kernel refuses the band, tries adaptedBand. Band 0 returns the process to the system; band
// -1 changes nothing. Logs the outcome and the band read back.
void holdJetsamBand(const TargetSettings& settings, std::int32_t pid);

// Moves the process to the idle band. Ignores failures.
void returnJetsamBand(std::int32_t pid);

// Returns the band to try after the kernel refused `refused_band`: a tenth of it, because xnu-8792
// multiplied all bands by ten. Returns std::nullopt below 1 and for kBandNeverAdapted.
std::optional<std::int32_t> adaptedBand(std::int32_t refused_band);

// Returns true if the band `actual` satisfies the settings on a kernel whose highest band is
// `highest`. The adapted band counts as well if the wanted band is above `highest`.
bool jetsamBandHolds(const TargetSettings& settings, std::int32_t actual, std::int32_t highest);

}  // namespace vorlatch
