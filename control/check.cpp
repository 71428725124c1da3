#include "control/check.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

#include "base/files.h"
#include "config/property_list_file.h"
#include "control/failure.h"
#include "control/installed_apps.h"
#include "control/nearest.h"
#include "control/observation.h"
#include "control/preferences_edit.h"
#include "control/setting_text.h"
#include "control/translation.h"

namespace vorlatch::control {
namespace {

using plist::Dictionary;
using plist::Value;

using Findings = std::vector<Finding>;

const std::vector<std::string>& topLevelKeys() {
  static const std::vector<std::string>& names =
      *new std::vector<std::string>{keys::kEnabled, keys::kAppConfigs, keys::kLogSizeLimit};
  return names;
}

void checkLogSizeLimit(const Value& limit, Findings& findings) {
  if (limit.as<std::int64_t>() != nullptr || limit.as<std::uint64_t>() != nullptr) return;
  findings.push_back({{keys::kLogSizeLimit},
                      "wrong-type",
                      tr("is %s (%s) and not an integer; the daemon reads it as %s",
                         kindText(limit), settingText(limit), plist::int64Value(limit))});
}

void checkTopLevel(const Dictionary& preferences, Findings& findings) {
  for (const auto& [key, value] : preferences) {
    const auto& known = topLevelKeys();
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    findings.push_back(
        {{key}, "unknown-key", tr("is unknown to the daemon") + suggestion(key, known)});
  }
  if (const Value* enabled = plist::find(preferences, keys::kEnabled)) {
    if (const auto fault = booleanFaultOf(*enabled)) {
      findings.push_back({{keys::kEnabled}, fault->code, fault->message});
    }
  } else {
    findings.push_back({{keys::kEnabled}, "missing", tr("is missing: the daemon is switched off")});
  }
  if (const Value* limit = plist::find(preferences, keys::kLogSizeLimit)) {
    checkLogSizeLimit(*limit, findings);
  }
  const Value* targets = plist::find(preferences, keys::kAppConfigs);
  if (targets == nullptr) {
    findings.push_back({{keys::kAppConfigs}, "missing", tr("is missing: there are no targets")});
  } else if (targets->as<Dictionary>() == nullptr) {
    findings.push_back(
        {{keys::kAppConfigs},
         "wrong-type",
         tr("is %s and not a dictionary; the daemon reads it as missing", kindText(*targets))});
  }
}

void checkTarget(const std::string& target, const Dictionary& settings, Findings& findings) {
  for (const auto& [key, value] : settings) {
    if (key == keys::kApplyAgain) continue;
    const SettingKey* row = findSettingKey(key);
    if (row == nullptr) {
      findings.push_back({{keys::kAppConfigs, target, key},
                          "unknown-key",
                          tr("is unknown to the daemon") + suggestion(key, settingKeyNames())});
    } else if (const auto fault = faultOf(*row, value)) {
      findings.push_back({{keys::kAppConfigs, target, key}, fault->code, fault->message});
    }
  }
}

void checkTargets(const Dictionary& preferences, Findings& findings) {
  const Value* stored = plist::find(preferences, keys::kAppConfigs);
  const auto* targets = stored != nullptr ? stored->as<Dictionary>() : nullptr;
  if (targets == nullptr) return;
  for (const auto& [target, value] : *targets) {
    if (const auto* settings = value.as<Dictionary>()) {
      checkTarget(target, *settings, findings);
    } else {
      findings.push_back(
          {{keys::kAppConfigs, target},
           "wrong-type",
           tr("is %s and not a dictionary; the daemon passes it over", kindText(value))});
    }
  }
}

// Returns the process that a pass finds for the target and, if it has a watch timer, the one that
// the timer finds.
std::set<std::int32_t> pidsFor(const Observation& observation, const std::string& target,
                               const TargetSettings& settings) {
  std::set<std::int32_t> pids{observation.pidForPass(target)};
  if (settings.check_interval_s > 0) pids.insert(observation.pidForWatchTimer(target));
  pids.erase(0);
  return pids;
}

void checkProcesses(const Dictionary& preferences, Findings& findings) {
  const Observation observation = Observation::now();
  const std::vector<InstalledApp> apps = installedApps();
  const auto is_installed_app = [&apps](const std::string& target) {
    return std::any_of(apps.begin(), apps.end(), [&target](const InstalledApp& app) {
      return target == app.bundle_identifier || target == app.process_name;
    });
  };
  std::map<std::int32_t, std::string> target_by_pid;
  for (const auto& [target, configured] : configuredTargets(preferences)) {
    const std::set<std::int32_t> pids = pidsFor(observation, target, configured.settings);
    if (pids.empty() && !is_installed_app(target)) {
      findings.push_back(
          {{keys::kAppConfigs, target},
           "no-match",
           tr("is the name or bundle identifier of no running process and no installed app")});
    }
    for (const std::int32_t pid : pids) {
      const auto [other, is_first] = target_by_pid.emplace(pid, target);
      if (is_first) continue;
      findings.push_back({{keys::kAppConfigs, target},
                          "same-process",
                          tr("finds the same process as %s (%s): both are applied to it, one after "
                             "the other",
                             other->second, pid)});
    }
  }
}

// Says why readFile returned nothing although errno is not set.
std::string whyNoFile(const std::string& path) {
  std::error_code unknown;
  const std::filesystem::file_status status = std::filesystem::status(path, unknown);
  if (std::filesystem::is_directory(status)) return tr("is a directory");
  return std::filesystem::is_regular_file(status) ? tr("is larger than 512 kB")
                                                  : tr("is no regular file");
}

struct Contents {
  Dictionary preferences;
  PropertyListSize size;
};

// Reads the file into `contents` and returns std::nullopt, or returns why it cannot be read as
// preferences. Throws a Failure as checkFile does.
std::optional<std::string> readAt(const std::string& path, bool is_the_daemons,
                                  Contents& contents) {
  errno = 0;
  const std::optional<std::string> bytes = readFile(path, kPropertyListBound.file_bytes);
  if (!bytes) {
    if (errno == ENOENT && !is_the_daemons) failCouldNot(tr("%s: there is no such file", path));
    if (errno == ENOENT) {
      return tr(
          "is missing: the daemon is switched off, and writes its default preset when it is "
          "started");
    }
    if (errno == ELOOP) return tr("is a link to itself; the daemon reads it as empty");
    if (errno != 0) failCouldNot(path + ": " + reasonOf(errno));
    return tr("%s; the daemon reads it as empty", whyNoFile(path));
  }
  if (bytes->empty()) return tr("is empty: the daemon is switched off");
  const std::optional<PropertyListSize> size = measurePropertyList(*bytes);
  if (!size)
    return tr("is damaged, or neither XML in UTF-8 nor binary; the daemon reads it as empty");
  if (size->levels > kPropertyListBound.levels) {
    return tr("nests deeper than 128 levels; the daemon reads it as empty");
  }
  if (!size->isWithin(kPropertyListBound)) {
    return tr("would take more memory than the daemon gives it; the daemon reads it as empty");
  }
  std::optional<Value> root = propertyListIn(*bytes);
  if (!root) return tr("is no property list; the daemon reads it as empty");
  auto* dictionary = root->as<Dictionary>();
  if (dictionary == nullptr) {
    return tr("holds %s and no dictionary; the daemon reads it as empty", kindText(*root));
  }
  contents = {.preferences = std::move(*dictionary), .size = *size};
  return std::nullopt;
}

}  // namespace

nlohmann::ordered_json findingsJson(const std::vector<Finding>& findings) {
  auto list = nlohmann::ordered_json::array();
  for (const Finding& each : findings) {
    list.push_back({{"path", each.path}, {"code", each.code}, {"message", each.message}});
  }
  return list;
}

CheckedFile checkFile(const std::optional<std::string>& file, bool looks_at_processes) {
  CheckedFile checked{
      .path = file ? *file : daemonFile(kPreferencesFileName), .findings = {}, .size = {}};
  Contents contents;
  if (const std::optional<std::string> obstacle = readAt(checked.path, !file, contents)) {
    checked.findings.push_back({{}, "unreadable", *obstacle});
    return checked;
  }
  checked.size = contents.size;
  checkTopLevel(contents.preferences, checked.findings);
  checkTargets(contents.preferences, checked.findings);
  if (looks_at_processes) checkProcesses(contents.preferences, checked.findings);
  return checked;
}

}  // namespace vorlatch::control
