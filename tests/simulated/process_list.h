// Presents the device's processes to the kernel model.
#pragma once

#include <optional>
#include <vector>

#include "platform/model/jetsam_model.h"
#include "tests/simulated/device.h"

namespace vorlatch::simulated {

class LiveProcesses : public model::ProcessList {
 public:
  explicit LiveProcesses(Device& device) : device_(&device) {}

  [[nodiscard]] std::vector<model::LiveProcess> all() const override {
    std::vector<model::LiveProcess> live;
    for (const Process& process : device_->processes()) {
      if (!process.is_zombie) live.push_back(asLive(process));
    }
    return live;
  }

  [[nodiscard]] std::optional<model::LiveProcess> find(std::int32_t pid) const override {
    const Process* process = device_->find(pid);
    if (process == nullptr) return std::nullopt;
    return asLive(*process);
  }

  [[nodiscard]] bool isApp(std::int32_t pid) const override {
    const Process* process = device_->find(pid);
    return process != nullptr && process->executable_path.find(".app/") != std::string::npos;
  }

 private:
  static model::LiveProcess asLive(const Process& process) {
    return {.pid = process.pid, .start_time = process.start_time};
  }

  Device* device_;
};

}  // namespace vorlatch::simulated
