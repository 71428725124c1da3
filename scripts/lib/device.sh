# shellcheck shell=bash
# Builds the programs for the device; sourced by scripts/package after common.sh.

# What a device build takes, beside the compiler from PyPI.
# shellcheck disable=SC2034 # for the scripts
device_packages=(cmake ninja-build python3 python3-venv libcli11-dev nlohmann-json3-dev llvm lowdown)

device=$root/build/device

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
  cp "$zig/lib/libc/darwin/SDKSettings.json" "$sdk/"
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

# build_device: leaves unsigned vorlatchd and vorlatchctl in build/device/programs.
build_device() {
  installCompiler
  makeSdk
  makeTools
  note "building for the device"
  quietly "$device/programs.log" cmake -S "$root" -B "$device/programs" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/packaging/ios.cmake" -DVORLATCH_DEVICE_TOOLS="$device/tools" \
    -DCMAKE_BUILD_TYPE=Release || die "the device build cannot be configured"
  quietly "$device/programs.log" ninja -C "$device/programs" || die "the device build fails"
}

# sign_device FOLDER: puts the two programs there, trimmed and signed.
sign_device() {
  local program
  for program in vorlatchd vorlatchctl; do
    llvm-strip -o "$1/$program" "$device/programs/$program"
    python3 "$root/packaging/sign.py" --identifier com.zel.vorlatch \
      --entitlements "$root/packaging/$program.entitlements.plist" "$1/$program" ||
      die "$program cannot be signed"
  done
}
