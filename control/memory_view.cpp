#include "control/memory_view.h"

#include <algorithm>

#include "control/setting_views.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

constexpr std::uint64_t kMegabyte = std::uint64_t{1024} * 1024;
constexpr std::int32_t kBarCells = 10;

std::string barOf(std::int32_t percent) {
  const std::int32_t full = std::clamp(percent / (100 / kBarCells), 0, kBarCells);
  return std::string(static_cast<std::size_t>(full), '#') +
         std::string(static_cast<std::size_t>(kBarCells - full), '.');
}

}  // namespace

std::optional<std::int32_t> MemoryView::percentOfLimit() const {
  if (!memory || !limit_mb) return std::nullopt;
  const std::uint64_t limit_bytes = static_cast<std::uint64_t>(*limit_mb) * kMegabyte;
  constexpr std::uint64_t kMost = 999;
  return static_cast<std::int32_t>(std::min(memory->footprint_bytes * 100 / limit_bytes, kMost));
}

MemoryView memoryOf(const Observation& observation, std::int32_t pid) {
  MemoryView view{.memory = observation.memoryOf(pid), .limit_mb = {}};
  const JetsamEntry* entry = observation.jetsamEntry(pid);
  if (entry != nullptr && entry->limit_mb > 0) view.limit_mb = entry->limit_mb;
  return view;
}

std::int64_t megabytesOf(std::uint64_t bytes) {
  return static_cast<std::int64_t>((bytes + kMegabyte - 1) / kMegabyte);
}

std::string memoryText(const MemoryView& view, bool with_bar) {
  if (!view.memory) return "-";
  std::string shown = tr("%s, peak %s", megabytesOf(view.memory->footprint_bytes),
                         megabytesOf(view.memory->peak_bytes));
  if (const auto percent = view.percentOfLimit()) {
    shown = tr("%s, %s %%", shown, *percent);
    if (with_bar) shown += " " + barOf(*percent);
  }
  return shown;
}

Json memoryJson(const MemoryView& view) {
  if (!view.memory) return {};
  return {{"used_bytes", view.memory->footprint_bytes},
          {"peak_bytes", view.memory->peak_bytes},
          {"limit_mb", jsonOf(view.limit_mb)},
          {"used_percent", jsonOf(view.percentOfLimit())}};
}

}  // namespace vorlatch::control
