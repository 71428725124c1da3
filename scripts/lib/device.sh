# shellcheck shell=bash
# Builds the programs for the device; sourced by scripts/package after common.sh.

# What a device build takes, beside the compiler from PyPI.
# shellcheck disable=SC2034 # for the scripts
device_packages=(cmake ninja-build python3 python3-venv libcli11-dev nlohmann-json3-dev llvm lowdown)
# shellcheck disable=SC2034
device_tools=(git dpkg-deb cmake ninja python3 llvm-strip lowdown)
# And one against Apple's SDK.
# shellcheck disable=SC2034
sdk_packages=(clang lld)
# shellcheck disable=SC2034
sdk_tools=(clang++ llvm-ar llvm-ranlib)

device=$root/build/device
# Where the programs are built; each compiler has a folder of its own.
programs=$device/programs
# The compiler and what it keeps of its own library take most of it.
room_mb=700

checkSdk() {
  [[ -d $1/System/Library/Frameworks/CoreFoundation.framework && -d $1/usr/include ]] ||
    die "this is no iPhoneOS SDK: ${1:-(no path)}"
}

# Rather than stopping half-way; what is there already is counted as room.
requireRoom() {
  local free_mb had_mb
  mkdir -p "$device" || die "$device cannot be made"
  free_mb=$(df --output=avail --block-size=1M "$device" | tail -n 1 | tr -d ' ')
  had_mb=$(du --summarize --block-size=1M "$device" | cut -f 1)
  ((free_mb + had_mb >= room_mb)) ||
    die "the disk is full: $free_mb MB are free in build/, and $((room_mb - had_mb)) are needed"
}

# The compiler, in a virtual environment: installed anew only when another version is asked for.
installCompiler() {
  local wanted=$root/packaging/requirements.txt had=$device/venv/requirements.txt
  if ! cmp -s "$wanted" "$had"; then
    note "installing zig from PyPI"
    rm -rf "$device/venv"
    mkdir -p "$device"
    quietly "$device/venv.log" python3 -m venv "$device/venv" ||
      die "the virtual environment $device/venv cannot be made"
    quietly "$device/pip.log" "$device/venv/bin/pip" --disable-pip-version-check install \
      --require-hashes --only-binary :all: --requirement "$wanted" ||
      die "zig cannot be installed from PyPI: check the network, or pip's settings for a mirror"
    cp "$wanted" "$had"
  fi
  zig=$("$device/venv/bin/python" -c 'import ziglang, os; print(os.path.dirname(ziglang.__file__))')
  [[ -x $zig/zig ]] || die "there is no compiler in $zig"
}

# What stands for Apple's SDK: zig's own libSystem and our CoreFoundation, both for iOS.
makeSdk() {
  local sdk=$device/sdk framework
  framework=$sdk/System/Library/Frameworks/CoreFoundation.framework
  mkdir -p "$sdk/usr/lib" "$framework"
  python3 - "$zig/lib/libc/darwin/libSystem.tbd" >"$sdk/usr/lib/libSystem.tbd" <<'PYTHON' ||
import re
import sys

with open(sys.argv[1], encoding="utf-8") as file:
    print(re.sub(r"targets:\s*\[[^\]]*\]", "targets: [ arm64-ios ]", file.read()), end="")
PYTHON
    die "zig's libSystem.tbd cannot be read"
  # The system's libraries behave as a program's SDK lets them expect: as those of iOS 15 do.
  printf '{"Version":"15.0"}\n' >"$sdk/SDKSettings.json"
  cp "$root/packaging/stubs/CoreFoundation.tbd" "$framework/"
}

# The names that packaging/ios.cmake looks for.
makeTools() {
  local tools=$device/tools headers=$zig/lib/libc/include/any-darwin-any
  mkdir -p "$tools"
  printf '%s=%s\n' include_dir "$headers" sys_include_dir "$headers" crt_dir "$device/sdk/usr/lib" \
    msvc_lib_dir '' kernel32_lib_dir '' gcc_dir '' darwin_sdk_dir "$device/sdk" >"$tools/libc.txt"
  cat >"$tools/c++" <<WRAPPER
#!/bin/sh
export ZIG_LIBC='$tools/libc.txt' ZIG_GLOBAL_CACHE_DIR='$device/cache' ZIG_LOCAL_CACHE_DIR='$device/cache'
exec '$zig/zig' c++ -target aarch64-ios.15.0 -isystem '$root/packaging/stubs' \\
  -F'$device/sdk/System/Library/Frameworks' "\$@"
WRAPPER
  printf '#!/bin/sh\nexec %q ar "$@"\n' "$zig/zig" >"$tools/ar"
  printf '#!/bin/sh\nexec %q ranlib "$@"\n' "$zig/zig" >"$tools/ranlib"
  chmod +x "$tools/c++" "$tools/ar" "$tools/ranlib"
}

# buildPrograms OPTION...: configures with these and builds.
buildPrograms() {
  note "building for the device"
  quietly "$programs.log" cmake -S "$root" -B "$programs" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/packaging/ios.cmake" -DCMAKE_BUILD_TYPE=Release "$@" ||
    die "the device build cannot be configured"
  quietly "$programs.log" ninja -C "$programs" || die "the device build fails"
}

# build_device: leaves unsigned vorlatchd and vorlatchctl in $programs.
build_device() {
  installCompiler
  makeSdk
  makeTools
  buildPrograms -DVORLATCH_DEVICE_TOOLS="$device/tools"
}

# build_with_sdk SDK: the same against Apple's own headers and libraries.
build_with_sdk() {
  # Its path is in every flag, and another path may be given the next time.
  rm -rf "$programs"
  buildPrograms -DVORLATCH_IOS_SDK="$(cd "$1" && pwd -P)"
}

# sign_device FOLDER: puts the two programs there, trimmed and signed.
sign_device() {
  local program
  for program in vorlatchd vorlatchctl; do
    llvm-strip -o "$1/$program" "$programs/$program"
    python3 "$root/packaging/sign.py" --identifier com.zel.vorlatch \
      --entitlements "$root/packaging/$program.entitlements.plist" "$1/$program" ||
      die "$program cannot be signed"
  done
}
