#include "platform/preferred_language.h"

#include <CoreFoundation/CoreFoundation.h>

#include "platform/darwin/cf_owned.h"
#include "platform/darwin/cf_text.h"

namespace vorlatch::platform {

std::string preferredLanguage() {
  const CFOwned<CFArrayRef> languages(CFLocaleCopyPreferredLanguages());
  if (!languages || CFArrayGetCount(languages.get()) == 0) return {};
  return utf8Of(static_cast<CFStringRef>(CFArrayGetValueAtIndex(languages.get(), 0)));
}

}  // namespace vorlatch::platform
