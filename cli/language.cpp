#include "cli/language.h"

#include "control/failure.h"
#include "control/translation.h"
#include "platform/preferred_language.h"

namespace vorlatch::cli {
namespace {

using control::Language;

std::string languageOf(const Terminal& terminal) {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    std::string value = terminal.variable(variable);
    if (!value.empty()) return value;
  }
  return platform::preferredLanguage();
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
