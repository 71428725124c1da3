#include "kernel/judgement.h"

namespace vorlatch {
namespace {

constexpr std::int32_t kBandScale = 10;

}  // namespace

bool memoryLimitHolds(std::int32_t wanted_mb, std::int32_t actual_mb) {
  if ((wanted_mb == 0 || wanted_mb == -1) && actual_mb >= 1) return true;
  return actual_mb == wanted_mb;
}

std::optional<std::int32_t> adaptedBand(std::int32_t refused_band) {
  if (refused_band < 1 || refused_band == kBandNeverAdapted) return std::nullopt;
  return refused_band / kBandScale;
}

}  // namespace vorlatch
