#include "platform/darwin/cf_text.h"

namespace vorlatch::platform {

std::optional<std::string> utf8Of(CFStringRef text) {
  const CFOwned<CFDataRef> bytes(CFStringCreateExternalRepresentation(
      kCFAllocatorDefault, text, kCFStringEncodingUTF8, /*lossByte=*/0));
  if (!bytes) return std::nullopt;
  return std::string(reinterpret_cast<const char*>(CFDataGetBytePtr(bytes.get())),
                     static_cast<std::size_t>(CFDataGetLength(bytes.get())));
}

CFOwned<CFStringRef> cfStringOf(std::string_view utf8) {
  return CFOwned<CFStringRef>(
      CFStringCreateWithBytes(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(utf8.data()),
                              static_cast<CFIndex>(utf8.size()), kCFStringEncodingUTF8,
                              /*isExternalRepresentation=*/false));
}

}  // namespace vorlatch::platform
