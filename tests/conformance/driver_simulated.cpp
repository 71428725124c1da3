#include "tests/conformance/driver.h"
#include "tests/simulated/device.h"

namespace vorlatch::conformance {
namespace {

simulated::Device& device() {
  return simulated::Device::get();
}

}  // namespace

std::uint64_t nowNs() {
  return device().scheduler.nowNs();
}

bool runUntil(const std::function<bool()>& done, std::uint64_t at_most_ns) {
  return device().scheduler.runUntil(nowNs() + at_most_ns, done);
}

// One thread runs everything, so there is nothing to lock.
void changed(const std::function<void()>& change) {
  change();
}

void spendInside(std::uint64_t duration_ns) {
  device().scheduler.spend(duration_ns);
}

void startMainLoop() {
  platform::runMainLoop();
}

std::string executablePath(const std::string& name) {
  static int count = 0;
  return "/private/var/" + std::to_string(++count) + "/" + name;
}

int startProcess(const std::string& executable_path) {
  return device().launch({.name = executable_path.substr(executable_path.rfind('/') + 1),
                          .executable_path = executable_path});
}

void endProcess(int pid) {
  device().exit(pid);
}

}  // namespace vorlatch::conformance
