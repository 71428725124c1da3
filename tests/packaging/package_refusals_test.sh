#!/usr/bin/env bash
# Usage: package_refusals_test.sh
#
# Runs scripts/package, in a copy of this checkout, where it cannot work. The last line says how many of the
# checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

export GIT_CEILING_DIRECTORIES=$here
copy=$here/copy
dist=$copy/dist
copyOfCheckout "$copy"
package() { "$copy/scripts/package" "$@"; }

# cannot WHAT WHY COMMAND...: the command ends with 1, its last line says why, and $dist still holds
# the old package and nothing else.
cannot() {
  local what=$1 why=$2 said status=0
  shift 2
  mkdir -p "$dist"
  echo old >"$dist/old.deb"
  said=$("$@" </dev/null 2>&1) || status=$?
  check "$what" "1: $why
old.deb: old" "$status: $(tail -n 1 <<<"$said" | sed "s,$here/,,g; s/^[^:]*: //")
$(ls -A "$dist"): $(<"$dist/old.deb")"
}

cannot 'an unknown argument' 'unknown argument: --fast (see --help)' package --fast

# Places where there can be no repository, and what was there.
cannot 'an address without a repository' '--url is of use only with --repository' package --url https://example.org
cannot 'a repository without a package' '--conformance makes no package for --repository' \
  package --conformance --repository "$here/repository"
bad='--url takes the address of the repository, like https://example.org/repo, not'
for url in example.org 'https://example.org/a b' 'https://example.org/a|b' file:///srv; do
  cannot "the address $url" "$bad $url" package --repository "$here/repository" --url "$url"
done
other='is no folder that you may write to; give --repository another one'
echo mine >"$here/file"
cannot 'a file' "file $other" package --repository "$here/file"
cannot 'a folder that cannot be made' "/proc/new/folder $other" package --repository /proc/new/folder
mkdir -p "$here/www/Packages"
foreign='is not of this repository; move it away, or give --repository a new folder'
for name in notes.txt com.zel.other_1_iphoneos-arm64.deb; do
  echo mine >"$here/www/$name"
  cannot "a foreign $name" "www/$name $foreign" package --repository "$here/www"
  check "$name is as it was" mine "$(<"$here/www/$name")"
  rm "$here/www/$name"
done
cannot 'a folder in the place of a list' "www/Packages $foreign" package --repository "$here/www"
rmdir "$here/www/Packages"
echo damaged >"$here/www/com.zel.vorlatch_1_iphoneos-arm64.deb"
cannot 'a damaged package' \
  'www/com.zel.vorlatch_1_iphoneos-arm64.deb cannot be read as a package; move it away, then try again' \
  package --repository "$here/www"
check 'nothing else was written' 'com.zel.vorlatch_1_iphoneos-arm64.deb' "$(ls -A "$here/www")"

# A tree that is not as it was committed.
touch "$copy/new file"
dirty='there are changes that are not committed; commit or remove them first'
cannot 'a file that is not committed' "$dirty" package
rm "$copy/new file"
echo >>"$copy/VERSION"
cannot 'a changed file' "$dirty" package
git -C "$copy" checkout -q VERSION
mv "$copy/.git" "$here/git"
cannot 'no checkout' 'this is no git checkout' package
mv "$here/git" "$copy/.git"

# Debian packages are missing.
mkdir "$here/apt"
printf '#!/bin/sh\nexit 1\n' >"$here/apt/dpkg-query"
printf '#!/bin/sh\necho "E: Unable to locate package" >&2\nexit 100\n' >"$here/apt/apt-get"
chmod +x "$here/apt/"*
wanted='git dpkg cmake ninja-build clang-19 lld-19 llvm-19'
wanted+=' libc++-19-dev libboost1.81-dev libjs-chart.js nlohmann-json3-dev lowdown gettext'
why="these packages could not be installed: $wanted"
((EUID == 0)) || why="packages are missing; as root: apt-get update && apt-get install $wanted"
cannot 'packages that cannot be had' "$why" env PATH="$here/apt:$PATH" "$copy/scripts/package"

# PyPI cannot be reached: nothing listens on that port.
export PIP_INDEX_URL=http://127.0.0.1:9/simple PIP_RETRIES=0 PIP_NO_CACHE_DIR=1 PIP_CONFIG_FILE=/dev/null
unset PIP_FIND_LINKS PIP_EXTRA_INDEX_URL
unreachable="cannot be downloaded from PyPI: check the network, or pip's settings for a mirror"
cannot 'no PyPI' "Python packages $unreachable" package
mkdir -p "$copy/build/python"
cp "$copy/scripts/lib/requirements.txt" "$copy/build/python"
cannot 'no PyPI any more' "Darwin's headers $unreachable" package

# A disk with too little room, where only its user sees it.
rm -rf "$copy/build"
mkdir "$copy/build"
# shellcheck disable=SC2016 # for the other shell
cannot 'a full disk' 'the disk is full: 64 MB are free in build/, and 250 are needed' \
  unshare --mount --map-root-user \
  bash -c 'mount -t tmpfs -o size=64m none "$0/build" && "$0/scripts/package"' "$copy"

summary
