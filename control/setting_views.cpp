#include "control/setting_views.h"

#include <array>

#include "control/translation.h"

namespace vorlatch::control {
namespace {

std::string wantedAndNow(const std::string& wanted, const std::string& now) {
  return wanted == now ? now : wanted + " > " + now;
}

// One setting, or two that are shown together. A member that does not apply is null.
struct SettingView {
  const char* heading;
  bool is_of_a_process;  // and not shown for a target that is not running
  std::string (*cell)(const TargetView& target);
  void (*add_now)(const TargetView& target, Json& json);
  std::string (*step)(const TargetView& target, std::int32_t highest_band);  // "": none
};

constexpr SettingView kBand{
    .heading = english("BAND"),
    .is_of_a_process = true,
    .cell =
        [](const TargetView& target) {
          const std::string now = numberText(target.band);
          if (target.wanted.jetsam_priority == -1) return tr("any > %s", now);
          if (target.wanted.jetsam_priority == 0) return tr("system > %s", now);
          return wantedAndNow(std::to_string(target.wanted.jetsam_priority), now);
        },
    .add_now = [](const TargetView& target, Json& json) { json["band"] = jsonOf(target.band); },
    .step = [](const TargetView& target, std::int32_t highest_band) -> std::string {
      const std::int32_t wanted = target.wanted.jetsam_priority;
      if (wanted == -1) return tr("leave the jetsam band");
      if (wanted == 0)
        return tr("return the process to the system's management, and its band to idle");
      const std::optional<std::int32_t> adapted = adaptedBand(wanted);
      if (adapted && wanted > highest_band) {
        return tr("mark the process as unmanaged and set jetsam band %s; if refused, band %s",
                  wanted, *adapted);
      }
      return tr("mark the process as unmanaged and set jetsam band %s", wanted);
    }};

constexpr SettingView kNice{
    .heading = english("NICE"),
    .is_of_a_process = true,
    .cell =
        [](const TargetView& target) {
          return wantedAndNow(std::to_string(target.wanted.nice_value),
                              numberText(target.state.nice_value));
        },
    .add_now = [](const TargetView& target,
                  Json& json) { json["nice"] = jsonOf(target.state.nice_value); },
    .step =
        [](const TargetView& target, std::int32_t /*highest_band*/) {
          const std::string wanted = std::to_string(target.wanted.nice_value);
          const std::optional<std::int32_t>& now = target.state.nice_value;
          if (!now) return tr("read the nice value, and set it to %s unless it is that", wanted);
          if (*now == target.wanted.nice_value)
            return tr("leave the nice value, which is %s", wanted);
          return tr("set the nice value from %s to %s", *now, wanted);
        }};

std::string limitCell(std::int32_t wanted_mb, const std::optional<std::int32_t>& now_mb) {
  return wantedAndNow(wanted_mb < 1 ? tr("system") : std::to_string(wanted_mb), numberText(now_mb));
}

std::string limitStep(std::int32_t wanted_mb) {
  return wanted_mb < 1 ? tr("the system's default") : tr("%s MB, fatal", wanted_mb);
}

std::optional<std::int32_t> limitNow(const TargetView& target, std::int32_t MemoryLimits::*which) {
  const std::optional<MemoryLimits>& now = target.state.memory_limits;
  return now ? std::optional(*now.*which) : std::nullopt;
}

constexpr SettingView kLimits{
    .heading = english("LIMITS MB"),
    .is_of_a_process = true,
    .cell =
        [](const TargetView& target) {
          return limitCell(target.wanted.active_limit_mb,
                           limitNow(target, &MemoryLimits::active_mb)) +
                 " / " +
                 limitCell(target.wanted.inactive_limit_mb,
                           limitNow(target, &MemoryLimits::inactive_mb));
        },
    .add_now =
        [](const TargetView& target, Json& json) {
          json["active_limit_mb"] = jsonOf(limitNow(target, &MemoryLimits::active_mb));
          json["inactive_limit_mb"] = jsonOf(limitNow(target, &MemoryLimits::inactive_mb));
        },
    .step =
        [](const TargetView& target, std::int32_t /*highest_band*/) {
          return tr("set the memory limits: active %s, inactive %s",
                    limitStep(target.wanted.active_limit_mb),
                    limitStep(target.wanted.inactive_limit_mb));
        }};

constexpr SettingView kManaged{
    .heading = english("MANAGED"),
    .is_of_a_process = true,
    .cell =
        [](const TargetView& target) {
          const std::optional<bool>& is_managed = target.state.is_managed;
          std::string now = !is_managed ? "-" : *is_managed ? tr("yes") : tr("no");
          if (!target.wanted.strips_managed) return now;
          return wantedAndNow(*target.wanted.strips_managed ? tr("no") : tr("yes"), now);
        },
    .add_now = [](const TargetView& target,
                  Json& json) { json["managed"] = jsonOf(target.state.is_managed); },
    .step = [](const TargetView& target, std::int32_t /*highest_band*/) -> std::string {
      if (!target.wanted.strips_managed) return {};
      return *target.wanted.strips_managed
                 ? tr("take it out of the system's management, not freezable, elevated")
                 : tr("give it back to the system's management, freezable, not elevated");
    }};

constexpr SettingView kTimer{.heading = english("TIMER"),
                             .is_of_a_process = false,
                             .cell =
                                 [](const TargetView& target) {
                                   const std::int32_t interval_s = target.wanted.check_interval_s;
                                   return interval_s > 0 ? std::to_string(interval_s) + "s"
                                                         : std::string("-");
                                 },
                             .add_now = nullptr,
                             .step = nullptr};

constexpr std::array kColumns = {&kBand, &kNice, &kLimits, &kManaged, &kTimer};
// In the order of kHoldInOrder in kernel/held_settings.h.
constexpr std::array kSteps = {&kLimits, &kNice, &kBand, &kManaged};

}  // namespace

std::vector<const char*> settingHeadings() {
  std::vector<const char*> headings;
  headings.reserve(kColumns.size());
  for (const SettingView* view : kColumns) headings.push_back(view->heading);
  return headings;
}

std::vector<std::string> settingCells(const TargetView& target) {
  std::vector<std::string> cells;
  for (const SettingView* view : kColumns) {
    const bool is_shown = target.pid != 0 || !view->is_of_a_process;
    cells.push_back(is_shown ? view->cell(target) : "-");
  }
  return cells;
}

Json wantedJson(const TargetSettings& wanted) {
  Json json;
  for (const SettingKey& row : kSettingKeys) {
    if (row.integer != nullptr) json[row.json] = wanted.*row.integer;
    if (row.boolean != nullptr) json[row.json] = jsonOf(wanted.*row.boolean);
  }
  return json;
}

void addStateJson(const TargetView& target, Json& now) {
  for (const SettingView* view : kColumns) {
    if (view->add_now != nullptr) view->add_now(target, now);
  }
}

std::vector<std::string> plannedSteps(const TargetView& target,
                                      std::optional<std::int32_t> highest_band) {
  std::vector<std::string> steps;
  for (const SettingView* view : kSteps) {
    std::string step = view->step(target, highest_band.value_or(0));
    if (!step.empty()) steps.push_back(std::move(step));
  }
  return steps;
}

std::string numberText(const std::optional<std::int32_t>& number) {
  return number ? std::to_string(*number) : "-";
}

}  // namespace vorlatch::control
