// A process's jetsam band: which processes the kernel ends before it when memory is short.
#pragma once

#include <cstdint>
#include <optional>

#include "config/target_settings.h"

namespace vorlatch {

// Above every kernel's bands: a band that is asked for to be refused, and not to be adapted.
inline constexpr std::int32_t kBandNeverAdapted = 999;

// Returns 0, or -1 and errno. `flags` is 0 or MEMORYSTATUS_SET_PRIORITY_ASSERTION.
int setJetsamPriority(std::int32_t pid, std::int32_t band, std::uint32_t flags);

// Makes the process unmanaged, as the system would move a managed one, and sets its band; one that
// the kernel refuses is adapted to older kernels. Band 0 returns the process to the system, -1
// leaves it alone. Logs the outcome and the band read back.
void holdJetsamBand(const TargetSettings& settings, std::int32_t pid);

// Moves the process to the idle band, whatever the kernel answers.
void returnJetsamBand(std::int32_t pid);

// Returns the band that is tried when the kernel refuses this one: bands of xnu-8792 and later are
// those of earlier kernels times ten. Returns std::nullopt below 1 and for kBandNeverAdapted.
std::optional<std::int32_t> adaptedBand(std::int32_t refused_band);

// Whether a process in the band `actual` is held as the settings ask, on a kernel whose highest
// band is `highest`: it may be in the adapted band where that kernel refuses the wanted one.
bool jetsamBandHolds(const TargetSettings& settings, std::int32_t actual, std::int32_t highest);

}  // namespace vorlatch
