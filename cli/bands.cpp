#include "cli/bands.h"

#include <algorithm>
#include <array>

namespace vorlatch::cli {
namespace {

constexpr std::array<Band, 20> kBands = {
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

}  // namespace

std::span<const Band> jetsamBands() {
  return kBands;
}

std::optional<std::int32_t> bandNumber(std::string_view name) {
  const auto* const band = std::find_if(kBands.begin(), kBands.end(),
                                        [name](const Band& each) { return each.name == name; });
  if (band == kBands.end() || band->is_reserved) return std::nullopt;
  return band->since_ios16;
}

}  // namespace vorlatch::cli
