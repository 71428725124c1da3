// The jetsam bands by name.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace vorlatch::cli {

inline constexpr std::int32_t kNoSuchBand = -1;

// The bands of xnu-11417.101.15 (bsd/sys/kern_memorystatus.h). Since xnu-8792 (iOS 16) they are
// those of earlier kernels times ten.
struct Band {
  const char* name;
  std::int32_t to_ios15;  // kNoSuchBand where those kernels lack it
  std::int32_t since_ios16;
  bool is_reserved;  // a kernel that is asked for it makes it idle
};

std::span<const Band> jetsamBands();

inline constexpr std::int32_t kHighestBandToIOS15 = 21;
inline constexpr std::int32_t kHighestBandSinceIOS16 = 210;

// The number that stands for the name in the preferences: that of iOS 16, which the daemon adapts
// to older kernels by itself. Nothing for an unknown name and for a reserved band.
std::optional<std::int32_t> bandNumber(std::string_view name);

}  // namespace vorlatch::cli
