// Short forms of the commands of memorystatus_control, for the tests of the platforms and of the
// model.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

#include "platform/memorystatus.h"
#include "platform/model/jetsam_model.h"

namespace vorlatch::model {

inline std::ostream& operator<<(std::ostream& out, const CallResult& result) {
  return out << '{' << result.result << ", errno " << result.error << '}';
}

}  // namespace vorlatch::model

namespace vorlatch {

using Answer = model::CallResult;

inline constexpr Answer kSuccess{};

constexpr Answer refusal(int error) {
  return {.result = -1, .error = error};
}

inline constexpr std::uint32_t kGetPriorityList = platform::MEMORYSTATUS_CMD_GET_PRIORITY_LIST;
inline constexpr std::uint32_t kSetPriority = platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES;
inline constexpr std::uint32_t kSetLimits = platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES;
inline constexpr std::uint32_t kGetLimits = platform::MEMORYSTATUS_CMD_GET_MEMLIMIT_PROPERTIES;
inline constexpr std::uint32_t kElevate =
    platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_ENABLE;
inline constexpr std::uint32_t kLower =
    platform::MEMORYSTATUS_CMD_ELEVATED_INACTIVEJETSAMPRIORITY_DISABLE;
inline constexpr std::uint32_t kSetManaged = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED;
inline constexpr std::uint32_t kGetManaged = platform::MEMORYSTATUS_CMD_GET_PROCESS_IS_MANAGED;
inline constexpr std::uint32_t kSetFreezable = platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE;
inline constexpr std::uint32_t kAssertion = platform::MEMORYSTATUS_SET_PRIORITY_ASSERTION;

// An entry of the priority list: pid, band, user data, limit and state.
using Entry = std::array<std::int64_t, 5>;
// The limits of a process: active and its attributes, inactive and its attributes.
using Limits = std::array<std::int64_t, 4>;

class JetsamCommands {
 public:
  using Control = std::function<Answer(std::uint32_t command, std::int32_t pid, std::uint32_t flags,
                                       void* buffer, std::size_t size)>;
  explicit JetsamCommands(Control control) : control_(std::move(control)) {}

  [[nodiscard]] Answer control(std::uint32_t command, std::int32_t pid, std::uint32_t flags = 0,
                               void* buffer = nullptr, std::size_t size = 0) const {
    return control_(command, pid, flags, buffer, size);
  }

  [[nodiscard]] Answer setBand(std::int32_t pid, std::int32_t band, std::uint64_t user_data = 0,
                               std::uint32_t flags = 0) const {
    platform::memorystatus_priority_properties properties{band, 0, user_data};
    return control(kSetPriority, pid, flags, &properties, sizeof(properties));
  }

  [[nodiscard]] Answer setLimits(std::int32_t pid,
                                 platform::memorystatus_memlimit_properties limits) const {
    return control(kSetLimits, pid, 0, &limits, sizeof(limits));
  }

  [[nodiscard]] std::optional<Limits> limits(std::int32_t pid) const {
    platform::memorystatus_memlimit_properties limits{};
    if (control(kGetLimits, pid, 0, &limits, sizeof(limits)) != kSuccess) return std::nullopt;
    return Limits{limits.memlimit_active, limits.memlimit_active_attr, limits.memlimit_inactive,
                  limits.memlimit_inactive_attr};
  }

  // Puts the state both into the buffer and into the flags, so that every kernel finds it.
  [[nodiscard]] Answer setState(std::uint32_t command, std::int32_t pid,
                                std::uint32_t state) const {
    return control(command, pid, state, &state, sizeof(state));
  }

  // Leaves room for processes that start meanwhile.
  [[nodiscard]] std::vector<Entry> list() const {
    std::vector<platform::memorystatus_priority_entry> buffer(2000);
    const int bytes =
        control(kGetPriorityList, 0, 0, buffer.data(), buffer.size() * sizeof(buffer[0])).result;
    buffer.resize(static_cast<std::size_t>(std::max(bytes, 0)) / sizeof(buffer[0]));
    std::vector<Entry> entries;
    entries.reserve(buffer.size());
    for (const auto& entry : buffer) {
      entries.push_back({entry.pid, entry.priority, static_cast<std::int64_t>(entry.user_data),
                         entry.limit, entry.state});
    }
    return entries;
  }

  [[nodiscard]] std::optional<Entry> entryOf(std::int32_t pid) const {
    for (const Entry& entry : list()) {
      if (entry[0] == pid) return entry;
    }
    return std::nullopt;
  }

 private:
  Control control_;
};

}  // namespace vorlatch
