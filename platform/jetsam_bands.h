// The kernel's jetsam bands. When memory is short, the kernel ends processes in low bands first.
#pragma once

#include <array>
#include <cstdint>

namespace vorlatch::platform {

inline constexpr std::int32_t kNoSuchBand = -1;
inline constexpr std::int32_t kHighestBandToIOS15 = 21;
inline constexpr std::int32_t kHighestBandSinceIOS16 = 210;

// The bands of xnu-11417.101.15 (bsd/sys/kern_memorystatus.h). Since xnu-8792 (iOS 16) each number
// is ten times that of earlier kernels.
struct JetsamBand {
  const char* name;
  std::int32_t to_ios15;  // kNoSuchBand if those kernels lack the band
  std::int32_t since_ios16;
  bool is_reserved;  // the kernel turns a request for this band into idle
};

inline constexpr std::array<JetsamBand, 20> kJetsamBands = {
    {{"idle", 0, 0, false},
     {"aging1", 1, 10, true},
     {"aging2", 2, 20, true},
     {"background", 3, 30, false},
     {"mail", 4, 40, false},
     {"phone", 5, 50, false},
     {"freezer", kNoSuchBand, 75, false},
     {"ui-support", 8, 80, false},
     {"foreground-support", 9, 90, false},
     {"foreground", 10, 100, false},
     {"audio-and-accessory", 12, 120, false},
     {"conductor", 13, 130, false},
     {"driver", 15, 150, false},
     {"home", 16, 160, false},
     {"executive", 17, 170, false},
     {"important", 18, 180, false},
     {"default", 18, 180, false},
     {"telephony", 19, 190, false},
     {"critical", 19, 190, false},
     {"highest", kHighestBandToIOS15, kHighestBandSinceIOS16, false}}};

}  // namespace vorlatch::platform
