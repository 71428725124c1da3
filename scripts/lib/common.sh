# shellcheck shell=bash
# What the scripts of this checkout share; sourced, never run.

set -euo pipefail
unset CDPATH
# The log is Chinese, and sorting must not depend on who runs the scripts.
export LC_ALL=C.UTF-8

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)

# What a build takes; the clang presets take both lists.
# shellcheck disable=SC2034 # for the scripts
build_packages=(g++ cmake ninja-build pkg-config libgtest-dev libbenchmark-dev libplist-dev
  libcli11-dev nlohmann-json3-dev lowdown util-linux)
# shellcheck disable=SC2034
clang_packages=(clang libclang-rt-14-dev llvm)
# What the tests of the optimised build run.
# shellcheck disable=SC2034
test_packages=(clang clang-format lld procps shellcheck zsh)

say() { printf '%s\n' "$*"; }

note() { printf '%s: %s\n' "${0##*/}" "$*" >&2; }

die() {
  note "$*"
  exit 1
}

# Prints the comment at the head of the running script.
usage() { sed -n '2,/^[^#]/{s/^# \{0,1\}//p}' "$0"; }

missingPackages() {
  local package
  for package in "$@"; do
    [[ $(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null) == installed ]] ||
      printf '%s\n' "$package"
  done
}

# Sees to it that these Debian packages are there. Nothing is asked of apt when they are.
require_packages() {
  if ! command -v dpkg-query >/dev/null; then
    note "this is not Debian; what these packages hold has to be installed: $*"
    return
  fi
  local missing log
  mapfile -t missing < <(missingPackages "$@")
  ((${#missing[@]} > 0)) || return 0
  ((EUID == 0)) ||
    die "packages are missing; as root: apt-get update && apt-get install ${missing[*]}"
  note "installing ${missing[*]}"
  log=$(mktemp)
  if ! { apt-get -q update && installPackages "${missing[@]}"; } >"$log" 2>&1; then
    cat "$log" >&2
    rm -f "$log"
    die "these packages could not be installed: ${missing[*]}"
  fi
  rm -f "$log"
}

installPython() {
  local wanted=$root/scripts/lib/requirements.txt folder=$root/build/python
  note "fetching Python packages from PyPI"
  rm -rf "$folder"
  quietly "$folder.log" python3 -m pip --disable-pip-version-check install --require-hashes --no-deps \
    --only-binary :all: --target "$folder" --requirement "$wanted" ||
    die "Python packages cannot be had from PyPI: check the network, or pip's settings for a mirror"
  cp "$wanted" "$folder"
}

# Sees to it that the Python packages in requirements.txt are there, in build/python.
require_python() {
  require_packages python3 python3-pip
  # Without the lock when there is nothing to do, as another script may be building for long.
  cmp -s "$root/scripts/lib/requirements.txt" "$root/build/python/requirements.txt" ||
    locked installPython
  export PYTHONPATH=$root/build/python PYTHONDONTWRITEBYTECODE=1
}

# Where no package manager could be asked.
require_tools() {
  local tool
  for tool in "$@"; do
    type -P "$tool" >/dev/null || die "$tool is missing"
  done
}

installPackages() {
  DEBIAN_FRONTEND=noninteractive apt-get -q install --yes --no-install-recommends "$@"
}

# The sanitizers lay out memory at fixed places, which a randomised address space may occupy. What
# is run behind this prefix keeps clear of them, where the machine allows it.
without_randomisation=()
if setarch "$(uname -m)" -R true 2>/dev/null; then
  without_randomisation=(setarch "$(uname -m)" -R)
fi

# Runs a command quietly; what it said is shown when it fails.
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
  # A folder that was configured from these presets brings itself up to date.
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
  # Tests are listed while they are built, by running them.
  quietly "$folder.log" "${without_randomisation[@]}" ninja -C "$folder" -j "$(nproc)" "$@" ||
    die "preset $preset cannot be built"
}

# Two scripts at once do not build the same folder.
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

# build PRESET [TARGET...]: brings build/PRESET up to date, configuring it first when needed.
build() { locked buildUnlocked "$@"; }

# configure PRESET: no more than what makes build/PRESET/compile_commands.json.
configure() { locked configureUnlocked "$1"; }

# Whether this process may lower nice values.
mayLowerNiceValues() { [[ $(nice -n -40 nice 2>/dev/null) == -20 ]]; }

# Whether this process may mount; tried in a namespace of its own, which leaves nothing behind.
mayMount() { unshare --mount mount -t tmpfs none /mnt 2>/dev/null; }

# Prints the paths below the root, one a line and relative to it, of files whose names match one of
# the patterns; nothing of what was built.
filesNamed() {
  local names=() pattern
  for pattern in "$@"; do names+=(-o -name "$pattern"); done
  (cd "$root" && find . \( -path ./build -o -path ./dist -o -path ./.git \) -prune -o \
    -type f \( "${names[@]:1}" \) -printf '%P\n' | sort)
}

cppFiles() { filesNamed '*.cpp' '*.h'; }

# Prints the shell scripts, with or without an ending in their name.
shellFiles() {
  filesNamed '*' | (
    cd "$root"
    while IFS= read -r file; do
      if [[ $file == *.@(sh|bash) ]] || head -c 64 "$file" | head -n 1 | grep -aqE '^#!.*\b(ba)?sh$'; then
        printf '%s\n' "$file"
      fi
    done
  )
}
