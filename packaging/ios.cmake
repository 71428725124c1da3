# Toolchain for arm64 iOS 15.0 and later: Debian's clang, lld and libc++ headers of one version.
# VORLATCH_IOS_SDK is the folder that packaging/make_sdk.py creates, or Apple's own SDK. VORLATCH_LIBCXX
# is the stub of the device's C++ library.
set(CMAKE_SYSTEM_NAME Generic)
set(CMAKE_SYSTEM_PROCESSOR arm64)
list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES VORLATCH_IOS_SDK VORLATCH_LIBCXX)
set(CMAKE_TRY_COMPILE_TARGET_TYPE STATIC_LIBRARY)

if(NOT EXISTS "${VORLATCH_IOS_SDK}/System/Library/Frameworks/CoreFoundation.framework")
  message(FATAL_ERROR "VORLATCH_IOS_SDK is no iOS SDK: ${VORLATCH_IOS_SDK}")
endif()
set(CMAKE_CXX_COMPILER clang++-19)
# Other archivers do not index Mach-O symbols.
set(CMAKE_AR llvm-ar-19 CACHE STRING "")
set(CMAKE_RANLIB llvm-ranlib-19 CACHE STRING "")
set(CMAKE_STRIP llvm-strip-19 CACHE STRING "")
# clang prefers the libc++ headers installed with it to those of an SDK.
set(CMAKE_CXX_FLAGS_INIT "-target arm64-apple-ios15.0 -isysroot \"${VORLATCH_IOS_SDK}\" -flto \
-isystem \"${CMAKE_CURRENT_LIST_DIR}/libcxx\"")
# Links the device's C++ library, which CoreFoundation loads anyway. Its stub has no weak symbols and the
# programs export none, so dyld never searches for weak definitions to share. -no_fixup_chains selects the
# older tables of fix-ups, which every tool can read. -no_encryption leaves out the load command for
# encrypted apps, with which the code would begin a page later.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -nostdlib++ \"${VORLATCH_LIBCXX}\" \
-Wl,-exported_symbol,__mh_execute_header -Wl,-no_fixup_chains -Wl,-no_encryption")
set(VORLATCH_PLATFORM darwin CACHE STRING "")
# Optimises for size, because the daemon mostly sleeps and otherwise makes system calls. Replaces the
# whole variable, because CMake appends its own flags to CMAKE_CXX_FLAGS_RELEASE_INIT.
set(CMAKE_CXX_FLAGS_RELEASE "-Oz -DNDEBUG -fvisibility=hidden -fvisibility-inlines-hidden" CACHE STRING "")
