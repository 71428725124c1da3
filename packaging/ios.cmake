# Toolchain for arm64 iOS 15.0 and up, on any system: Debian's clang, lld and libc++ headers of one
# version. VORLATCH_IOS_SDK names the folder that packaging/make_sdk.py makes, or Apple's own SDK;
# VORLATCH_LIBCXX names the stub of the device's C++ library.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm64)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VORLATCH_IOS_SDK VORLATCH_LIBCXX)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(NOT EXISTS "${VORLATCH_IOS_SDK}/System/Library/Frameworks/CoreFoundation.framework")
  message(FATAL_ERROR "VORLATCH_IOS_SDK is no iOS SDK: ${VORLATCH_IOS_SDK}")
endif()
set(CMAKE_CXX_COMPILER clang++-19)
# The archives of other tools have no index of Mach-O's symbols.
set(CMAKE_AR llvm-ar-19 CACHE STRING "")
set(CMAKE_RANLIB llvm-ranlib-19 CACHE STRING "")
set(CMAKE_STRIP llvm-strip-19 CACHE STRING "")
# clang takes the libc++ headers beside itself before those of an SDK.
set(CMAKE_CXX_FLAGS_INIT "-target arm64-apple-ios15.0 -isysroot \"${VORLATCH_IOS_SDK}\" -flto \
-isystem \"${CMAKE_CURRENT_LIST_DIR}/libcxx\"")
# The one C++ library of a process is the device's, which CoreFoundation loads anyway. Its stub has plain
# symbols only, and a program exports none, so dyld never looks for a weak definition to share. Its fix-ups
# are in the tables of old, which every tool can read back.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib++ \"${VORLATCH_LIBCXX}\" \
-Wl,-exported_symbol,__mh_execute_header -Wl,-no_fixup_chains")
set(VORLATCH_PLATFORM darwin CACHE STRING "")
# Small before fast: the daemon sleeps, and what it does when awake is system calls. Whole, as cmake
# would put a flag of its own behind.
set(CMAKE_CXX_FLAGS_RELEASE "-Oz -DNDEBUG -fvisibility=hidden -fvisibility-inlines-hidden" CACHE STRING "")
