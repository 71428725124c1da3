#include "tests/simulated/device.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

namespace vorlatch::simulated {
namespace {

constexpr std::int64_t kStoriesBegin = 1772600767;  // 2026-03-04 05:06:07
constexpr std::int64_t kNsPerSecond = 1'000'000'000;
constexpr std::size_t kLongestShown = 32;

// The bytes of a short buffer.
std::string bytesOf(const void* buffer, std::size_t length) {
  if (buffer == nullptr || length > kLongestShown) return {};
  return {static_cast<const char*>(buffer), length};
}

// What a call left in its buffer: as many bytes as its result counts, but at least 32 if the buffer
// is that long.
std::string leftIn(const void* buffer, std::size_t length, int result) {
  if (buffer == nullptr) return {};
  const std::size_t counted = result > 0 ? static_cast<std::size_t>(result) : 0;
  return {static_cast<const char*>(buffer), std::min(length, std::max(counted, kLongestShown))};
}

// Examples: "setpriority(0, 100, -5) = 0", "memorystatus_control(18, 100, 0, {00000000}, 4) = -1
// errno 1". A buffer of up to 32 bytes is shown in hexadecimal between the arguments, and the bytes
// that the call left in it behind the result. A longer buffer is shown by its length.
std::string callText(std::string_view function, std::string_view arguments,
                     const std::string& before, const std::string& after,
                     const model::CallResult& answer) {
  std::string text = std::string(function) + '(';
  // A lone '&' in the arguments marks the buffer's position.
  const std::size_t at = arguments.find('&');
  text += arguments.substr(0, at);
  if (at != arguments.npos) {
    text.append(before.empty() ? std::string("buffer") : hexGroups(before));
    text += arguments.substr(at + 1);
  }
  text += ") = " + std::to_string(answer.result);
  if (answer.error != 0) text.append(" errno ").append(std::to_string(answer.error));
  if (after != before) text.append(" ").append(hexGroups(after));
  return text;
}

}  // namespace

std::string hexGroups(const std::string& bytes) {
  std::string text = "{";
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i != 0 && i % 4 == 0) text += ' ';
    char digits[3];
    std::snprintf(digits, sizeof(digits), "%02x", static_cast<std::uint8_t>(bytes[i]));
    text += digits;
  }
  return text + "}";
}

Device::Device() : main_queue_(scheduler.makeQueue("main")) {
  kernel.default_task_limit_mb = 1450;
  launch(
      {.name = "vorlatchd", .executable_path = "/var/jb/usr/libexec/vorlatchd", .pid = getpid()});
}

Device& Device::get() {
  static Device& device = *new Device;
  return device;
}

std::int32_t Device::launch(const Launch& launch) {
  const std::int32_t pid = launch.pid != 0 ? launch.pid : next_pid_++;
  processes_.push_front({.name = launch.name,
                         .executable_path = launch.executable_path,
                         .pid = pid,
                         .nice_value = launch.nice_value,
                         .start_time = next_start_time_++,
                         .memory = launch.memory});
  by_pid_[pid] = processes_.begin();
  return pid;
}

void Device::exit(std::int32_t pid) {
  const auto entry = by_pid_.find(pid);
  if (entry == by_pid_.end()) return;
  processes_.erase(entry->second);
  by_pid_.erase(entry);
  jetsam_table.records.erase(pid);
}

void Device::becomeZombie(std::int32_t pid) {
  const auto entry = by_pid_.find(pid);
  if (entry == by_pid_.end()) return;
  entry->second->is_zombie = true;
  processes_.splice(processes_.end(), processes_, entry->second);
  jetsam_table.records.erase(pid);
}

Process* Device::find(std::int32_t pid) {
  const auto entry = by_pid_.find(pid);
  if (entry == by_pid_.end() || entry->second->is_zombie) return nullptr;
  return &*entry->second;
}

std::vector<model::LiveProcess> LiveProcesses::all() const {
  std::vector<model::LiveProcess> live;
  for (const Process& process : device_->processes()) {
    if (!process.is_zombie) live.push_back({.pid = process.pid, .start_time = process.start_time});
  }
  return live;
}

std::optional<model::LiveProcess> LiveProcesses::find(std::int32_t pid) const {
  const Process* process = device_->find(pid);
  if (process == nullptr) return std::nullopt;
  return model::LiveProcess{.pid = pid, .start_time = process->start_time};
}

bool LiveProcesses::isApp(std::int32_t pid) const {
  const Process* process = device_->find(pid);
  return process != nullptr && process->executable_path.find(".app/") != std::string::npos;
}

model::JetsamRecord Device::jetsam(std::int32_t pid) {
  const auto process = LiveProcesses(*this).find(pid);
  return process ? model::recordOf(kernel, jetsam_table, *process) : model::JetsamRecord{};
}

void Device::post(const std::string& name) {
  const auto [first, last] = observers_.equal_range(name);
  for (auto observer = first; observer != last; ++observer) {
    scheduler.send(main_queue_, observer->second);
  }
}

void Device::observe(const std::string& name, platform::Work handler) {
  observers_.emplace(name, std::move(handler));
}

std::int64_t Device::wallSeconds() const {
  return kStoriesBegin + wall_step_s_ + static_cast<std::int64_t>(scheduler.nowNs()) / kNsPerSecond;
}

std::vector<std::string> Device::takeTrace(const std::vector<std::string>& functions) {
  std::vector<std::string> taken;
  for (const Call& call : takeCalls()) {
    const bool wanted = functions.empty() || std::find(functions.begin(), functions.end(),
                                                       call.function) != functions.end();
    if (wanted) taken.push_back(call.text);
  }
  return taken;
}

void Device::trace(std::string_view function, std::string text, const Answer& answer,
                   std::string left) {
  if (!is_tracing) return;
  trace_.push_back({.function = std::string(function),
                    .text = std::move(text),
                    .answer = answer,
                    .left = std::move(left),
                    .at_ns = scheduler.nowNs()});
}

Script* Device::matchingScript(std::string_view function, int command, std::int32_t pid) {
  Script* matching = nullptr;
  for (Script& script : scripts_) {
    if (script.function != function || script.command.value_or(command) != command ||
        script.pid.value_or(pid) != pid) {
      continue;
    }
    ++script.seen;
    const bool applies = script.seen >= script.first && script.seen - script.first < script.count;
    if (applies && matching == nullptr) matching = &script;
  }
  return matching;
}

int Device::call(std::string_view function, int command, std::int32_t pid,
                 std::string_view arguments, void* buffer, std::size_t buffer_bytes,
                 const std::function<Answer()>& act) {
  const int errno_before = errno;
  const std::string before = is_tracing ? bytesOf(buffer, buffer_bytes) : std::string();
  std::optional<Script> fault;
  if (interference) fault = interference(function, command, pid, buffer != nullptr);
  const Script* script = fault ? &*fault : matchingScript(function, command, pid);
  Answer answer;
  if (script == nullptr || !script->result || script->acts) answer = act();
  if (script != nullptr) {
    if (script->result) answer = {.result = *script->result, .error = script->error};
    if (script->buffer && buffer != nullptr) {
      std::memcpy(buffer, script->buffer->data(), std::min(buffer_bytes, script->buffer->size()));
    }
    scheduler.spend(script->takes_ns);
    // A copy, because the callback may add scripts and so invalidate `script`.
    if (const auto meanwhile = script->meanwhile) meanwhile();
  }
  if (is_tracing) {
    trace(function, callText(function, arguments, before, bytesOf(buffer, buffer_bytes), answer),
          answer, leftIn(buffer, buffer_bytes, answer.result));
  }
  errno = answer.error != 0 ? answer.error : errno_before;
  return answer.result;
}

}  // namespace vorlatch::simulated
