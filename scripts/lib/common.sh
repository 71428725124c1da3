# shellcheck shell=bash
# Functions that all scripts share; to be sourced.

set -euo pipefail
unset CDPATH
# UTF-8 for the Chinese log, and a sort order that does not depend on the user.
export LC_ALL=C.UTF-8

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)

# Packages that every build needs; the clang presets also need clang_packages.
# shellcheck disable=SC2034 # for the scripts
build_packages=(g++ cmake ninja-build pkg-config libgtest-dev libbenchmark-dev libplist-dev
  libboost1.81-dev libjs-chart.js libzbar-dev nlohmann-json3-dev lowdown gettext util-linux)
# shellcheck disable=SC2034
clang_packages=(clang libclang-rt-14-dev llvm)
# Packages that the tests of the optimised build need.
# shellcheck disable=SC2034
test_packages=(apt-utils chromium chromium-driver clang clang-format lld procps python3-pil python3-selenium
  shellcheck xz-utils zsh)

say() { printf '%s\n' "$*"; }

note() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

die() {
  note "$*"
  exit 1
}

# For --help, every script prints the comment at its top.
case "${1-}" in
  -h | --help)
    sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$0"
    exit
    ;;
esac

# collectTexts POT: writes the texts that vorlatchctl shows, as the sources mark them.
collectTexts() {
  git -C "$root" ls-files '*.cpp' '*.h' | grep -v -e '^tests/' -e '^fuzz/' -e '^benchmarks/' |
    xgettext --directory="$root" --files-from=- --from-code=UTF-8 --language=C++ --keyword=tr \
      --keyword=english --flag=tr:1:c-format --no-location --no-wrap --output="$1"
}

# Installs these Debian packages if they are missing. Does not call apt otherwise.
require_packages() {
  local package missing=()
  if ! command -v dpkg-query >/dev/null; then
    note "this is not Debian; make sure that the contents of these packages are installed: $*"
    return
  fi
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] || missing+=("$package")
  done
  ((${#missing[@]} > 0)) || return 0
  ((EUID == 0)) ||
    die "packages are missing; as root: apt-get update && apt-get install ${missing[*]}"
  note "installing ${missing[*]}"
  mkdir -p "$root/build"
  DEBIAN_FRONTEND=noninteractive quietly "$root/build/apt.log" \
    sh -c 'apt-get -q update && apt-get -q install --yes --no-install-recommends "$@"' - "${missing[@]}" ||
    die "these packages could not be installed: ${missing[*]}"
}

installPython() {
  local wanted=$root/scripts/lib/requirements.txt folder=$root/build/python
  note "fetching Python packages from PyPI"
  rm -rf "$folder"
  quietly "$folder.log" python3 -m pip --disable-pip-version-check install --require-hashes --no-deps \
    --only-binary :all: --target "$folder" --requirement "$wanted" ||
    die "Python packages cannot be downloaded from PyPI: check the network, or pip's settings for a mirror"
  cp "$wanted" "$folder"
}

# Installs the Python packages of requirements.txt in build/python if they are missing or outdated.
require_python() {
  require_packages python3 python3-pip
  # Checks before taking the lock, because another script may hold it during a long build.
  cmp -s "$root/scripts/lib/requirements.txt" "$root/build/python/requirements.txt" ||
    locked installPython
  export PYTHONPATH=$root/build/python PYTHONDONTWRITEBYTECODE=1
}

# The sanitizers need fixed addresses, which address space randomisation may occupy. Where the machine
# allows it, this command prefix turns randomisation off.
without_randomisation=()
if setarch "$(uname -m)" -R true 2>/dev/null; then
  without_randomisation=(setarch "$(uname -m)" -R)
fi

# quietly LOG COMMAND...: writes the output to the log, and shows it only if the command fails.
quietly() {
  local log=$1
  shift
  if ! "$@" >"$log" 2>&1; then
    cat "$log" >&2
    return 1
  fi
}

configureUnlocked() {
  local folder=$root/build/$1
  local how=(cmake -S "$root" --preset "$1")
  # If CMakePresets.json did not change since then, ninja runs CMake again only if needed.
  if [[ -f $folder/build.ninja && $folder/build.ninja -nt $root/CMakePresets.json ]]; then
    how=(ninja -C "$folder" build.ninja)
  fi
  quietly "$folder.log" "${how[@]}" || die "preset $1 cannot be configured"
}

buildUnlocked() {
  local preset=$1 folder=$root/build/$1 left
  configureUnlocked "$preset"
  shift
  left=$(ninja -C "$folder" -n "$@" 2>&1 || true)
  [[ $left == *'no work to do'* ]] && return
  note "building $preset"
  # The build runs the test programs to list their tests, so it needs the prefix, too.
  quietly "$folder.log" "${without_randomisation[@]}" ninja -C "$folder" -j "$(nproc)" "$@" ||
    die "preset $preset cannot be built"
}

# locked COMMAND...: holds the build lock, so that two scripts never build at the same time.
locked() {
  mkdir -p "$root/build"
  (
    if ! flock --nonblock 9; then
      note "waiting for another script's build"
      flock 9
    fi
    "$@" 9>&-
  ) 9>"$root/build/.lock"
}

# build PRESET [TARGET...]: configures build/PRESET if needed, and builds it.
build() { locked buildUnlocked "$@"; }

# configure PRESET: only configures build/PRESET, which writes compile_commands.json.
configure() { locked configureUnlocked "$1"; }

# Whether this process may lower nice values.
mayLowerNiceValues() { [[ $(nice -n -40 nice 2>/dev/null) == -20 ]]; }

# Whether this process may mount. Tries it in a new namespace, so that no mount remains.
mayMount() { unshare --mount mount -t tmpfs none /mnt 2>/dev/null; }

# Print files below the working directory, without build results. Shell scripts may have no suffix.
cppFiles() {
  find . \( -path ./build -o -path ./dist \) -prune -o \
    -type f \( -name '*.cpp' -o -name '*.h' \) -printf '%P\n' | sort
}
# The page's scripts, and those of its tests.
scriptFiles() { find web tests -name '*.js' | sort; }
formattedFiles() { cppFiles && scriptFiles; }
shellFiles() {
  grep -rlE --exclude-dir={build,dist,.git} '^(#!/.*\b(ba)?sh|# shellcheck shell=bash)$' .
}

failed_parts=()
# part NAME COMMAND...: runs a part of a script; later parts run even if this one fails.
part() {
  local name=$1 result
  shift
  note "$name"
  # In a subshell, so that its first failure ends only this part.
  set +e
  (
    set -e
    "$@"
  )
  result=$?
  set -e
  ((result == 0)) || failed_parts+=("$name")
}

# Ends the script, with the names of the parts that failed.
endParts() {
  ((${#failed_parts[@]} == 0)) || die "failed: $(printf '%s; ' "${failed_parts[@]}")"
  say "${0##*/}: all passed"
}
