#include "control/app_icon.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/files.h"
#include "config/property_list_file.h"
#include "control/installed_apps.h"

namespace vorlatch::control {
namespace {

constexpr std::size_t kMostIconBytes = std::size_t{256} * 1024;
constexpr std::size_t kMostNameBytes = 200;
constexpr std::string_view kPngSignature = "\x89PNG\r\n\x1a\n";
constexpr std::string_view kPngEnding = ".png";

const plist::Dictionary* dictionaryIn(const plist::Dictionary* outer, const char* key) {
  const plist::Value* value = outer != nullptr ? plist::find(*outer, key) : nullptr;
  return value != nullptr ? value->as<plist::Dictionary>() : nullptr;
}

// Returns the last name of the list, which is of the largest icon; empty if there is none.
std::string lastIconFile(const plist::Dictionary* outer) {
  const plist::Value* value = outer != nullptr ? plist::find(*outer, "CFBundleIconFiles") : nullptr;
  const auto* names = value != nullptr ? value->as<plist::Array>() : nullptr;
  const auto* name =
      names != nullptr && !names->empty() ? names->back().as<std::string>() : nullptr;
  return name != nullptr ? *name : std::string();
}

// Returns the icon's name without its ending; empty if it could lead out of the bundle.
std::string iconNameIn(const plist::Dictionary& info) {
  std::string name;
  for (const char* icons : {"CFBundleIcons", "CFBundleIcons~ipad"}) {
    if (name.empty()) {
      name = lastIconFile(dictionaryIn(dictionaryIn(&info, icons), "CFBundlePrimaryIcon"));
    }
  }
  if (name.empty()) name = lastIconFile(&info);
  if (name.ends_with(kPngEnding)) name.resize(name.size() - kPngEnding.size());
  const bool is_plain = name.size() <= kMostNameBytes && !name.starts_with('.') &&
                        name.find('/') == name.npos && name.find('\0') == name.npos;
  return is_plain ? name : std::string();
}

std::optional<std::string> iconIn(const std::string& bundle) {
  // A link in place of the bundle could lead anywhere.
  if (!isDirectory(bundle)) return std::nullopt;
  const std::string name = iconNameIn(readDictionary(bundle + "/Info.plist"));
  if (name.empty()) return std::nullopt;
  for (const char* scale : {"@3x", "@2x", "", "@2x~ipad"}) {
    const std::string path = bundle + "/" + name + scale + std::string(kPngEnding);
    auto icon = readFileToPublish(path, kMostIconBytes);
    if (icon && icon->starts_with(kPngSignature)) return icon;
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> iconOfApp(const std::string& bundle_identifier) {
  const std::vector<InstalledApp> apps = installedApps();
  const auto app = std::find_if(apps.begin(), apps.end(), [&](const InstalledApp& each) {
    return each.bundle_identifier == bundle_identifier;
  });
  return app != apps.end() ? iconIn(app->bundle) : std::nullopt;
}

}  // namespace vorlatch::control
