/* The part of CoreFoundation that platform/darwin uses, for a build without Apple's SDK. Names and
   types are the framework's; scripts/package --sdk compiles against the real ones, which reveals a
   difference.
 */
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef unsigned char Boolean;
typedef uint8_t UInt8;
typedef uint32_t UInt32;
typedef uint16_t UniChar;
typedef signed long CFIndex;
typedef unsigned long CFTypeID;
typedef unsigned long CFOptionFlags;
typedef double CFTimeInterval;
typedef CFTimeInterval CFAbsoluteTime;

typedef struct CFRange {
  CFIndex location;
  CFIndex length;
} CFRange;

static inline CFRange CFRangeMake(CFIndex location, CFIndex length) {
  const CFRange range = {location, length};
  return range;
}

typedef const void* CFTypeRef;
typedef const struct __CFAllocator* CFAllocatorRef;
typedef const struct __CFString* CFStringRef;
typedef const struct __CFNumber* CFNumberRef;
typedef const struct __CFBoolean* CFBooleanRef;
typedef const struct __CFDate* CFDateRef;
typedef const struct __CFData* CFDataRef;
typedef const struct __CFArray* CFArrayRef;
typedef struct __CFArray* CFMutableArrayRef;
typedef const struct __CFDictionary* CFDictionaryRef;
typedef struct __CFDictionary* CFMutableDictionaryRef;
typedef const struct __CFLocale* CFLocaleRef;
typedef const struct __CFTimeZone* CFTimeZoneRef;
typedef struct __CFDateFormatter* CFDateFormatterRef;
typedef struct __CFError* CFErrorRef;
typedef CFTypeRef CFPropertyListRef;

extern const CFAllocatorRef kCFAllocatorDefault;
extern const CFAllocatorRef kCFAllocatorNull;
CFTypeID CFGetTypeID(CFTypeRef object);
CFTypeRef CFRetain(CFTypeRef object);
void CFRelease(CFTypeRef object);
CFStringRef CFCopyDescription(CFTypeRef object);
CFStringRef CFCopyTypeIDDescription(CFTypeID type);

typedef UInt32 CFStringEncoding;
enum { kCFStringEncodingUTF8 = 0x08000100 };
CFTypeID CFStringGetTypeID(void);
CFStringRef CFStringCreateWithBytes(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                    CFStringEncoding encoding, Boolean isExternalRepresentation);
CFIndex CFStringGetLength(CFStringRef string);
void CFStringGetCharacters(CFStringRef string, CFRange range, UniChar* buffer);

typedef CFIndex CFNumberType;
enum { kCFNumberSInt64Type = 4, kCFNumberDoubleType = 13 };
extern const CFBooleanRef kCFBooleanTrue;
extern const CFBooleanRef kCFBooleanFalse;
CFTypeID CFBooleanGetTypeID(void);
Boolean CFBooleanGetValue(CFBooleanRef boolean);
CFTypeID CFNumberGetTypeID(void);
CFNumberRef CFNumberCreate(CFAllocatorRef allocator, CFNumberType type, const void* value);
Boolean CFNumberGetValue(CFNumberRef number, CFNumberType type, void* value);
Boolean CFNumberIsFloatType(CFNumberRef number);

CFTypeID CFDateGetTypeID(void);
CFDateRef CFDateCreate(CFAllocatorRef allocator, CFAbsoluteTime time);
CFAbsoluteTime CFDateGetAbsoluteTime(CFDateRef date);
CFAbsoluteTime CFAbsoluteTimeGetCurrent(void);

CFTypeID CFDataGetTypeID(void);
CFDataRef CFDataCreate(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length);
CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef allocator, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator);
const UInt8* CFDataGetBytePtr(CFDataRef data);
CFIndex CFDataGetLength(CFDataRef data);

typedef struct CFArrayCallBacks CFArrayCallBacks;
extern const CFArrayCallBacks kCFTypeArrayCallBacks;
CFTypeID CFArrayGetTypeID(void);
CFIndex CFArrayGetCount(CFArrayRef array);
const void* CFArrayGetValueAtIndex(CFArrayRef array, CFIndex index);
CFMutableArrayRef CFArrayCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                       const CFArrayCallBacks* callBacks);
void CFArrayAppendValue(CFMutableArrayRef array, const void* value);

typedef struct CFDictionaryKeyCallBacks CFDictionaryKeyCallBacks;
typedef struct CFDictionaryValueCallBacks CFDictionaryValueCallBacks;
extern const CFDictionaryKeyCallBacks kCFTypeDictionaryKeyCallBacks;
extern const CFDictionaryValueCallBacks kCFTypeDictionaryValueCallBacks;
CFTypeID CFDictionaryGetTypeID(void);
CFIndex CFDictionaryGetCount(CFDictionaryRef dictionary);
void CFDictionaryGetKeysAndValues(CFDictionaryRef dictionary, const void** keys,
                                  const void** values);
CFMutableDictionaryRef CFDictionaryCreateMutable(CFAllocatorRef allocator, CFIndex capacity,
                                                 const CFDictionaryKeyCallBacks* keyCallBacks,
                                                 const CFDictionaryValueCallBacks* valueCallBacks);
void CFDictionarySetValue(CFMutableDictionaryRef dictionary, const void* key, const void* value);

enum CFPropertyListFormat : CFIndex {
  kCFPropertyListOpenStepFormat = 1,
  kCFPropertyListXMLFormat_v1_0 = 100,
  kCFPropertyListBinaryFormat_v1_0 = 200
};
enum { kCFPropertyListImmutable = 0 };
CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef allocator, CFDataRef data,
                                               CFOptionFlags options, CFPropertyListFormat* format,
                                               CFErrorRef* error);
CFDataRef CFPropertyListCreateData(CFAllocatorRef allocator, CFPropertyListRef propertyList,
                                   CFPropertyListFormat format, CFOptionFlags options,
                                   CFErrorRef* error);

typedef CFIndex CFDateFormatterStyle;
enum { kCFDateFormatterNoStyle = 0 };
extern const CFStringRef kCFDateFormatterTimeZone;
CFLocaleRef CFLocaleCopyCurrent(void);
void CFTimeZoneResetSystem(void);
CFTimeZoneRef CFTimeZoneCopySystem(void);
CFDateFormatterRef CFDateFormatterCreate(CFAllocatorRef allocator, CFLocaleRef locale,
                                         CFDateFormatterStyle dateStyle,
                                         CFDateFormatterStyle timeStyle);
void CFDateFormatterSetFormat(CFDateFormatterRef formatter, CFStringRef formatString);
void CFDateFormatterSetProperty(CFDateFormatterRef formatter, CFStringRef key, CFTypeRef value);
CFStringRef CFDateFormatterCreateStringWithAbsoluteTime(CFAllocatorRef allocator,
                                                        CFDateFormatterRef formatter,
                                                        CFAbsoluteTime time);

void CFRunLoopRun(void);

#ifdef __cplusplus
}
#endif
