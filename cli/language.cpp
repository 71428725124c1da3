#include "cli/language.h"

#include "config/property_list_file.h"
#include "control/failure.h"
#include "control/translation.h"
#include "platform/system_paths.h"

namespace vorlatch::cli {
namespace {

using control::Language;

// Returns the first language of the device's user; empty if none is known.
std::string preferredLanguage() {
  constexpr const char* kLanguages = "AppleLanguages";
  const plist::Dictionary preferences =
      readDictionary(platform::globalPreferencesPath(), kLanguages);
  const plist::Value* value = plist::find(preferences, kLanguages);
  const auto* languages = value != nullptr ? value->as<plist::Array>() : nullptr;
  if (languages == nullptr || languages->empty()) return {};
  const auto* first = languages->front().as<std::string>();
  return first != nullptr ? *first : std::string();
}

std::string languageOf(const Terminal& terminal) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    std::string value = terminal.variable(variable);
    if (!value.empty()) return value;
  }
  return preferredLanguage();
}

}  // namespace

void chooseLanguage(const std::string& asked_for, const Terminal& terminal) {
  const std::string name = asked_for.empty() ? languageOf(terminal) : asked_for;
  const bool is_chinese = name.starts_with("zh");
  if (!asked_for.empty() && !is_chinese && !name.starts_with("en")) {
    control::failWrongUsage(control::tr("--lang takes en or zh, not \"%s\"", asked_for));
  }
  control::setLanguage(is_chinese ? Language::Chinese : Language::English);
}

}  // namespace vorlatch::cli
