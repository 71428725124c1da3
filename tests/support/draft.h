// Preferences while an editor changes them.
#pragma once

#include <string>

#include "base/plist_value.h"

namespace vorlatch::tests {

// The dictionary under this key. Anything else under it is replaced by an empty dictionary.
inline plist::Dictionary& childOf(plist::Dictionary& parent, const std::string& key) {
  plist::Value& child = parent.try_emplace(key, plist::Dictionary{}).first->second;
  if (child.as<plist::Dictionary>() == nullptr) child = plist::Dictionary{};
  return *child.as<plist::Dictionary>();
}

inline plist::Dictionary& targetsIn(plist::Dictionary& preferences) {
  return childOf(preferences, "AppConfigs");
}

}  // namespace vorlatch::tests
