# Toolchain for arm64 iOS 15.0 and up, on any system.
#
# Without Apple's SDK: VORLATCH_DEVICE_TOOLS names the folder that scripts/package makes, with zig's
# compiler behind the names c++, ar and ranlib. With it: VORLATCH_IOS_SDK names the SDK, and clang and
# lld are the system's.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm64)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VORLATCH_DEVICE_TOOLS VORLATCH_IOS_SDK)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(VORLATCH_IOS_SDK)
  if(NOT EXISTS "${VORLATCH_IOS_SDK}/System/Library/Frameworks/CoreFoundation.framework")
    message(FATAL_ERROR "VORLATCH_IOS_SDK is no iOS SDK: ${VORLATCH_IOS_SDK}")
  endif()
  set(CMAKE_CXX_COMPILER clang++)
  set(CMAKE_CXX_FLAGS_INIT "-target arm64-apple-ios15.0 -isysroot ${VORLATCH_IOS_SDK} -stdlib=libc++")
  set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld")
  # The archives of other tools have no index of Mach-O's symbols.
  find_program(CMAKE_AR NAMES llvm-ar llvm-ar-14 REQUIRED)
  find_program(CMAKE_RANLIB NAMES llvm-ranlib llvm-ranlib-14 REQUIRED)
else()
  set(CMAKE_CXX_COMPILER "${VORLATCH_DEVICE_TOOLS}/c++")
  set(CMAKE_AR "${VORLATCH_DEVICE_TOOLS}/ar" CACHE FILEPATH "")
  set(CMAKE_RANLIB "${VORLATCH_DEVICE_TOOLS}/ranlib" CACHE FILEPATH "")
endif()
set(VORLATCH_PLATFORM darwin CACHE STRING "")
# Small before fast: the daemon sleeps, and what it does when awake is system calls. Whole, as cmake
# would put a flag of its own behind.
set(CMAKE_CXX_FLAGS_RELEASE "-Oz -DNDEBUG -fvisibility=hidden -fvisibility-inlines-hidden" CACHE STRING "")
