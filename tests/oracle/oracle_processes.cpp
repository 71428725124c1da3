// The oracle's rules for finding the process of a key.
#include <cstring>

#include "tests/oracle/oracle.h"
#include "tests/oracle/reading.h"

namespace vorlatch::tests {
namespace {

// The text in a buffer up to its first NUL.
std::string textIn(const std::string& buffer) {
  return buffer.substr(0, buffer.find('\0'));
}

Buffer zeros(std::size_t size) {
  return {.size = static_cast<std::int64_t>(size), .holds = std::string(size, '\0')};
}

}  // namespace

void Oracle::walk(const std::function<bool(std::int32_t)>& visit) {
  const std::int64_t needed = daemon_.call("proc_listpids", {1, 0}, Buffer{}).result;
  if (needed < 1 || daemon_.lacksMemory()) return;
  const Answer listed = daemon_.call("proc_listpids", {1, 0}, Buffer{.size = 4 * needed});
  for (std::size_t i = 0; static_cast<std::int64_t>(i) < listed.result / 4; ++i) {
    std::int32_t pid = 0;
    std::memcpy(&pid, listed.left.data() + 4 * i, 4);
    if (pid >= 1 && !visit(pid)) return;
  }
}

std::pair<std::string, bool> Oracle::nameOf(std::int32_t pid) {
  const Answer named = daemon_.call("proc_name", {pid}, zeros(256));
  return {textIn(named.left), named.result >= 1};
}

std::optional<std::string> Oracle::bundleOf(std::int32_t pid) {
  const Answer located = daemon_.call("proc_pidpath", {pid}, zeros(4096));
  if (located.result < 1) return std::nullopt;
  const std::string path = textIn(located.left);
  if (!isUtf8(path)) return std::nullopt;
  return identifierOf(path.substr(0, path.rfind('/')));
}

std::optional<std::string> Oracle::identifierOf(const std::string& bundle_directory) {
  if (!bundle_directory.ends_with(".app") && !bundle_directory.ends_with(".appex")) {
    return std::nullopt;
  }
  const auto known = identifiers_.find(bundle_directory);
  if (known != identifiers_.end()) return known->second;
  const auto info = daemon_.readsInfoPlist(bundle_directory);
  if (!info) return std::nullopt;
  const auto entry = info->find("CFBundleIdentifier");
  if (entry == info->end()) return std::nullopt;
  const auto* identifier = entry->second.as<std::string>();
  if (identifier == nullptr) return std::nullopt;
  if (!identifier->empty()) identifiers_[bundle_directory] = *identifier;
  return *identifier;
}

std::int32_t Oracle::pidOf(const std::string& key) {
  std::int32_t found = 0;
  walk([&](std::int32_t pid) {
    if (nameOf(pid).first == key || bundleOf(pid) == key) found = pid;
    return found == 0;
  });
  return found;
}

Oracle::PIDs Oracle::runningProcesses() {
  PIDs running;
  walk([&](std::int32_t pid) {
    const auto [name, answered] = nameOf(pid);
    // The first process with a name wins; the last process with a bundle identifier wins.
    if (answered && !name.empty() && isUtf8(name)) running.emplace(name, pid);
    const std::optional<std::string> identifier = bundleOf(pid);
    if (identifier && !identifier->empty()) running[*identifier] = pid;
    return true;
  });
  return running;
}

}  // namespace vorlatch::tests
