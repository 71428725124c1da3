#include "tests/soak/onlooker.h"

#include <poll.h>

#include <filesystem>
#include <optional>
#include <utility>

#include "platform/property_list.h"
#include "tests/blackbox/installation.h"

namespace vorlatch {
namespace {

constexpr std::size_t kFindingsMax = 5;
constexpr int kBetweenLooksMs = 1;

}  // namespace

Onlooker::Onlooker(std::vector<std::string> paths)
    : paths_(std::move(paths)), thread_([this] {
        while (!ends_) look();
      }) {}

void Onlooker::stop() {
  ends_ = true;
  if (thread_.joinable()) thread_.join();
}

void Onlooker::look() {
  for (const std::string& path : paths_) {
    if (!seen_.contains(path) && !std::filesystem::exists(path)) continue;
    seen_.insert(path);
    const std::string bytes = readFile(path);
    const std::optional<plist::Value> value = platform::parsePropertyList(bytes);
    ++looks_;
    const bool is_whole = value && value->as<plist::Dictionary>() != nullptr;
    if (!is_whole && findings_.size() < kFindingsMax) findings_.push_back(path + ": " + bytes);
  }
  poll(nullptr, 0, kBetweenLooksMs);
}

}  // namespace vorlatch
