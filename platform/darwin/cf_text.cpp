#include "platform/darwin/cf_text.h"

#include "platform/utf8.h"

namespace vorlatch::platform {

std::string utf8Of(CFStringRef text) {
  // CoreFoundation's own conversion fails at a lone surrogate, with a loss byte too
  // (swift-corelibs-foundation, CFString.c, CFStringCreateExternalRepresentation).
  std::u16string units(static_cast<std::size_t>(CFStringGetLength(text)), u'\0');
  CFStringGetCharacters(text, CFRangeMake(0, CFStringGetLength(text)),
                        reinterpret_cast<UniChar*>(units.data()));
  return vorlatch::utf8Of(units);
}

CFOwned<CFStringRef> cfStringOf(std::string_view utf8) {
  return CFOwned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                              static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/false));
}

}  // namespace vorlatch::platform
