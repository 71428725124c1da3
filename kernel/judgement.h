// How the daemon judges what the kernel made of a setting, and what it asks for in a band's place.
#pragma once

#include <cstdint>
#include <optional>

namespace vorlatch {

// Above every kernel's bands: whoever asks for it wants it refused as it is, not made smaller.
inline constexpr std::int32_t kBandNeverAdapted = 999;

// Whether a memory limit read back is the one that was asked for, both in MB. Asking for the
// default (0 or -1) holds when the kernel answers with the positive limit that it chose. Any other
// pair has to be equal: a 0 read back as -1 counts as overridden.
bool memoryLimitHolds(std::int32_t wanted_mb, std::int32_t actual_mb);

// The band that is tried when the kernel refuses this one: bands of xnu-8792 and later are those of
// earlier kernels times ten. Nothing below 1, and for kBandNeverAdapted.
std::optional<std::int32_t> adaptedBand(std::int32_t refused_band);

}  // namespace vorlatch
