#include "platform/local_time.h"

#include "platform/darwin/cf_text.h"

namespace vorlatch::platform {

std::string localTimeStamp() {
  const CFOwned<CFLocaleRef> locale(CFLocaleCopyCurrent());
  const CFOwned<CFDateFormatterRef> formatter(CFDateFormatterCreate(
      kCFAllocatorDefault, locale.get(), kCFDateFormatterNoStyle, kCFDateFormatterNoStyle));
  const CFOwned<CFStringRef> pattern = cfStringOf("MM-dd HH:mm:ss");
  if (!formatter || !pattern) return {};
  CFDateFormatterSetFormat(formatter.get(), pattern.get());
  // CoreFoundation caches the time zone, so reset it before each look-up.
  CFTimeZoneResetSystem();
  const CFOwned<CFTimeZoneRef> zone(CFTimeZoneCopySystem());
  CFDateFormatterSetProperty(formatter.get(), kCFDateFormatterTimeZone, zone.get());
  const CFOwned<CFStringRef> stamp(CFDateFormatterCreateStringWithAbsoluteTime(
      kCFAllocatorDefault, formatter.get(), CFAbsoluteTimeGetCurrent()));
  return stamp ? utf8Of(stamp.get()) : std::string();
}

}  // namespace vorlatch::platform
