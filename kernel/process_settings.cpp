#include "kernel/process_settings.h"

#include "platform/memorystatus.h"

namespace vorlatch {
namespace {

using platform::memorystatus_control;

std::uint32_t attributesOf(std::int32_t limit_mb) {
  return limit_mb >= 1 ? platform::MEMORYSTATUS_MEMLIMIT_ATTR_FATAL : 0;
}

int setState(std::uint32_t command, std::int32_t pid, bool state) {
  std::int32_t value = state ? 1 : 0;
  return memorystatus_control(command, pid, 0, &value, sizeof(value));
}

}  // namespace

int setMemoryLimits(std::int32_t pid, std::int32_t active_mb, std::int32_t inactive_mb) {
  platform::memorystatus_memlimit_properties limits{
      .memlimit_active = active_mb,
      .memlimit_active_attr = attributesOf(active_mb),
      .memlimit_inactive = inactive_mb,
      .memlimit_inactive_attr = attributesOf(inactive_mb),
  };
  return memorystatus_control(platform::MEMORYSTATUS_CMD_SET_MEMLIMIT_PROPERTIES, pid, 0, &limits,
                              sizeof(limits));
}

int setJetsamPriority(std::int32_t pid, std::int32_t band, std::uint32_t flags) {
  platform::memorystatus_priority_properties properties{
      .priority = band, .padding = 0, .user_data = 0};
  return memorystatus_control(platform::MEMORYSTATUS_CMD_SET_PRIORITY_PROPERTIES, pid, flags,
                              &properties, sizeof(properties));
}

int setManaged(std::int32_t pid, bool managed) {
  return setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_MANAGED, pid, managed);
}

int setFreezable(std::int32_t pid, bool freezable) {
  return setState(platform::MEMORYSTATUS_CMD_SET_PROCESS_IS_FREEZABLE, pid, freezable);
}

int getNiceValue(std::int32_t pid) {
  return platform::getpriority(PRIO_PROCESS, static_cast<std::uint32_t>(pid));
}

int setNiceValue(std::int32_t pid, std::int32_t nice_value) {
  return platform::setpriority(PRIO_PROCESS, static_cast<std::uint32_t>(pid), nice_value);
}

}  // namespace vorlatch
