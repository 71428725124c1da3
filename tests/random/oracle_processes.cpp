// The oracle's rules of which process a key means.
#include <cstring>

#include "tests/random/oracle.h"
#include "tests/random/reading.h"

namespace vorlatch::tests::random {

namespace {

// A buffer's text ends at its first NUL.
std::string textIn(const std::string& buffer) {
  return buffer.substr(0, buffer.find('\0'));
}

}  // namespace

std::string Oracle::text(std::int32_t pid) const {
  const std::string number = std::to_string(pid);
  return number == own_pid_ ? "self" : number;
}

void Oracle::walk(const std::function<bool(std::int32_t)>& visit) {
  const int needed = record_.call("proc_listpids(1, 0, null, 0)").answer.result;
  if (needed < 1) return;
  const std::string size = std::to_string(4 * needed);
  const auto& listed = record_.call("proc_listpids(1, 0, buffer, " + size + ")");
  for (std::size_t i = 0; static_cast<int>(i) < listed.answer.result / 4; ++i) {
    std::int32_t pid = 0;
    std::memcpy(&pid, listed.left.data() + 4 * i, 4);
    if (pid >= 1 && !visit(pid)) return;
  }
}

std::pair<std::string, bool> Oracle::nameOf(std::int32_t pid) {
  const auto& named = record_.call("proc_name(" + text(pid) + ", zeros, 256)");
  return {textIn(named.left), named.answer.result >= 1};
}

std::optional<std::string> Oracle::bundleOf(std::int32_t pid) {
  const auto& located = record_.call("proc_pidpath(" + text(pid) + ", zeros, 4096)");
  if (located.answer.result < 1) return std::nullopt;
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
  const auto info = files_.info_plists.find(bundle_directory);
  if (info == files_.info_plists.end()) return std::nullopt;
  const auto entry = info->second.find("CFBundleIdentifier");
  if (entry == info->second.end()) return std::nullopt;
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
    // The first process keeps a name, the last one takes an identifier.
    if (answered && !name.empty() && isUtf8(name)) running.emplace(name, pid);
    const std::optional<std::string> identifier = bundleOf(pid);
    if (identifier && !identifier->empty()) running[*identifier] = pid;
    return true;
  });
  return running;
}

}  // namespace vorlatch::tests::random
