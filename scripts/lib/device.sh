# shellcheck shell=bash
# Builds and stages the programs for the device, and makes the package; sourced after common.sh.

# Packages that a device build needs.
# shellcheck disable=SC2034 # for the scripts
device_packages=(dpkg cmake ninja-build clang-19 lld-19 llvm-19 libc++-19-dev
  libboost1.81-dev libjs-chart.js nlohmann-json3-dev lowdown gettext)

device=$root/build/device
# The build folder of the programs; a build with Apple's SDK uses another one.
programs=$device/programs
# What to build there.
targets=(all)
# Half of it is for the wheel.
room_mb=250

# Checks for enough disk space before the build. Existing files of an earlier build count as free.
requireRoom() {
  local free_mb had_mb
  mkdir -p "$device" || die "$device cannot be made"
  free_mb=$(df --output=avail --block-size=1M "$device" | tail -n 1 | tr -d ' ')
  had_mb=$(du --summarize --block-size=1M "$device" | cut -f 1)
  ((free_mb + had_mb >= room_mb)) ||
    die "the disk is full: $free_mb MB are free in build/, and $((room_mb - had_mb)) are needed"
}

# Creates the replacement for Apple's SDK in $device/sdk. Downloads the C library's headers only if
# requirements.txt changed.
makeSdk() {
  local wanted=$root/packaging/requirements.txt had=$device/sdk/requirements.txt wheel=()
  mkdir -p "$device"
  if ! cmp -s "$wanted" "$had"; then
    note "fetching Darwin's headers from PyPI"
    rm -rf "$device/sdk" "$device/wheel"
    quietly "$device/pip.log" python3 -m pip --disable-pip-version-check download --require-hashes \
      --no-deps --only-binary :all: --platform manylinux_2_12_x86_64 --dest "$device/wheel" \
      --requirement "$wanted" ||
      die "Darwin's headers cannot be downloaded from PyPI: check the network, or pip's settings for a mirror"
    wheel=(--wheel "$device"/wheel/*.whl)
  fi
  quietly "$device/sdk.log" python3 "$root/packaging/make_sdk.py" "${wheel[@]}" "$device/sdk" ||
    die "the stand-in for Apple's SDK cannot be made"
  cp "$wanted" "$had"
  rm -rf "$device/wheel"
}

# configurePrograms SDK [ARGUMENT...]: configures $programs; cmake gets the arguments.
configurePrograms() {
  # The compiler would otherwise take paths and flags from the environment.
  unset CPATH C_INCLUDE_PATH CPLUS_INCLUDE_PATH LIBRARY_PATH CXXFLAGS CPPFLAGS LDFLAGS
  quietly "$programs.log" cmake -S "$root" -B "$programs" -G Ninja \
    -DCMAKE_TOOLCHAIN_FILE="$root/packaging/ios.cmake" -DCMAKE_BUILD_TYPE=Release \
    -DVORLATCH_IOS_SDK="$1" -DVORLATCH_LIBCXX="$device/sdk/usr/lib/libc++.tbd" "${@:2}" ||
    die "the device build cannot be configured"
}

# buildPrograms SDK: builds the targets, by default the unsigned programs, in $programs.
buildPrograms() {
  note "building for the device"
  configurePrograms "$1"
  quietly "$programs.log" ninja -C "$programs" "${targets[@]}" || die "the device build fails"
}

buildForDevice() {
  makeSdk
  buildPrograms "$device/sdk"
}

# buildWithSdk SDK: builds with Apple's own C headers, libSystem and CoreFoundation.
buildWithSdk() {
  makeSdk
  # The SDK's path is in all compiler flags, and may differ from that of the last build.
  rm -rf "$programs"
  buildPrograms "$(cd "$1" && pwd -P)"
}

# layOutPackage STAGING: installs below STAGING/var/jb, and strips and signs the programs.
layOutPackage() {
  local jb=$1/var/jb
  rm -rf "$1"
  quietly "$programs.log" cmake --install "$programs" --prefix "$jb" --strip ||
    die "the package's files cannot be laid out"
  python3 "$root/packaging/sign.py" "$jb"/usr/libexec/vorlatch{d,web} "$jb"/usr/bin/vorlatchctl ||
    die "the programs cannot be signed"
}

# make_deb STAGING VERSION OUTPUT: makes the package OUTPUT from the files in STAGING/var/jb and the
# control files in packaging/debian, which it adds to STAGING. The same files and commit give the same
# bytes. A failure leaves OUTPUT unchanged. Do not call it in a && or || list, where errexit has no effect.
make_deb() (
  staging=$1 version=$2 output=$3
  trap 'rm -f "$output.new"' EXIT
  # The device's block size is unknown: rounds each file up to a full KiB, and counts 1 KiB for each
  # directory and link.
  size=$(find "$staging" -mindepth 1 \( -type f -printf '%s\n' -o -printf '1\n' \) |
    awk '{ sum += int(($1 + 1023) / 1024) } END { print sum + 0 }')
  mkdir "$staging/DEBIAN"
  sed -e "s/@VERSION@/$version/" -e "s/@INSTALLED_SIZE@/$size/" "$root/packaging/debian/control.in" \
    >"$staging/DEBIAN/control"
  (cd "$staging" && find var -type f -print0 | sort -z | xargs -0 md5sum) >"$staging/DEBIAN/md5sums"
  find "$root/packaging/debian" -name 'p*' -exec cp -t "$staging/DEBIAN" {} +
  chmod +x "$staging"/DEBIAN/p*
  # Sets modes and times, which otherwise depend on who builds the package and when.
  chmod -R a-st,u=rwX,go=rX "$staging"
  time=$(git -C "$root" log -1 --format=%ct)
  find "$staging" -exec touch --no-dereference --date="@$time" {} +
  SOURCE_DATE_EPOCH=$time quietly "$staging.log" \
    dpkg-deb --root-owner-group --uniform-compression -Zgzip -z9 --build "$staging" "$output.new"
  mv -f "$output.new" "$output"
)
