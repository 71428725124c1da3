#include "control/name_search.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <map>
#include <optional>
#include <set>

#include "control/installed_apps.h"
#include "control/nearest.h"

namespace vorlatch::control {
namespace {

bool isSame(const std::string& name, const std::string& text) {
  return name.size() == text.size() && containsIgnoringCase(name, text);
}

std::optional<NameRule> ruleFor(const RunningProcess& process, const std::string& text) {
  const bool by_name = isNamedBy(process, text);
  const bool by_identifier = isIdentifiedBy(process, text);
  if (by_name && by_identifier) return NameRule::NameAndBundleIdentifier;
  if (by_name) return NameRule::Name;
  if (by_identifier) return NameRule::BundleIdentifier;
  const std::string identifier = process.bundle_identifier.value_or("");
  if (isSame(process.name, text) || isSame(identifier, text)) return NameRule::SameInAnotherCase;
  if (containsIgnoringCase(process.name, text) || containsIgnoringCase(identifier, text)) {
    return NameRule::Part;
  }
  return std::nullopt;
}

class Search {
 public:
  explicit Search(const std::string& text) : text_(text) {
    for (InstalledApp& app : installedApps()) {
      apps_.emplace(app.bundle_identifier, std::move(app));
    }
  }

  // Adds the process, or an app that does not run, if anything about it is like the text.
  void consider(const RunningProcess& process) {
    const std::string identifier = process.bundle_identifier.value_or("");
    FoundName found{.pid = process.pid,
                    .name = process.name,
                    .bundle_identifier = identifier,
                    .display_name = "",
                    .rule = NameRule::PartOfDisplayName};
    for (const std::string& name : {process.name, identifier}) {
      if (!name.empty()) search_.known.push_back(name);
    }
    if (const auto rule = ruleFor(process, text_)) {
      found.rule = *rule;
    } else if (const auto app = apps_.find(identifier);
               app == apps_.end() || !isCalled(app->second, found)) {
      return;
    }
    search_.found.push_back(std::move(found));
  }

  void considerClosedApps(const std::set<std::string>& running_identifiers) {
    for (const auto& [identifier, app] : apps_) {
      if (running_identifiers.contains(identifier)) continue;
      consider({.pid = 0, .name = app.process_name, .bundle_identifier = identifier});
    }
  }

  // Leaves those that the daemon would find in the kernel's order.
  NameSearch result() && {
    const auto unlikeliness = [](const FoundName& found) {
      return std::max(found.rule, NameRule::BundleIdentifier);
    };
    std::stable_sort(
        search_.found.begin(), search_.found.end(),
        [&](const FoundName& a, const FoundName& b) { return unlikeliness(a) < unlikeliness(b); });
    return std::move(search_);
  }

 private:
  bool isCalled(const InstalledApp& app, FoundName& found) const {
    for (const std::string& name : displayNamesOf(app)) {
      if (!containsIgnoringCase(name, text_)) continue;
      found.display_name = name;
      if (isSame(name, text_)) found.rule = NameRule::SameInAnotherCase;
      return true;
    }
    return false;
  }

  const std::string& text_;
  std::map<std::string, InstalledApp> apps_;  // by bundle identifier
  NameSearch search_;
};

}  // namespace

NameSearch searchNames(const Observation& observation, const std::string& text) {
  Search search(text);
  std::set<std::string> running_identifiers;
  for (const RunningProcess& process : observation.processes) {
    search.consider(process);
    if (process.bundle_identifier) running_identifiers.insert(*process.bundle_identifier);
  }
  search.considerClosedApps(running_identifiers);
  return std::move(search).result();
}

const char* codeOf(NameRule rule) {
  static constexpr std::array<const char*, 6> kCodes = {
      "name-and-bundle-identifier", "name", "bundle-identifier",
      "same-in-another-case",       "part", "part-of-display-name"};
  return kCodes.at(static_cast<std::size_t>(rule));
}

}  // namespace vorlatch::control
