#!/usr/bin/env bash
# Usage: repository_test.sh
#
# Makes a repository of small packages by makeRepository, in a copy of this checkout: what its files say,
# the same bytes twice, and what Debian's apt reads. The last line says how many of the checks passed; ends
# with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

copy=$here/copy
repository="$here/a folder"
copyOfCheckout "$copy"
version=$(<"$copy/VERSION")
mkdir -p "$repository/.git" "$copy/build/device"

# addVersion VERSION [URL]: makes a package, and adds it to the repository.
addVersion() (
  umask 077
  local package=$here/com.zel.vorlatch_$1_iphoneos-arm64.deb tree=$here/tree
  rm -rf "$tree"
  mkdir -p "$tree/var/jb"
  echo "$1" >"$tree/var/jb/vorlatchd"
  makeIn "$copy" "$tree" "$1" "$package"
  # shellcheck disable=SC2016 # for the other shell
  bash -c 'source "$0/scripts/lib/common.sh"; source "$0/scripts/lib/device.sh"
    source "$0/scripts/lib/repository.sh"; requireRepository "$2" "$3"; makeRepository "$@"' \
    "$copy" "$package" "$repository" "${2-}"
)
sums() { (cd "$repository" && sha256sum -- *); }
apt() { "$checkout/packaging/check_repository.sh" "$repository" 2>&1 || echo "status $?"; }
# entries FIELD...: the values of these fields in Packages.
entries() { grep -E "^($(paste -sd '|' <(printf '%s\n' "$@"))): " "$repository/Packages"; }

addVersion 0.0.9
check 'without an address, no fields with addresses' 'Version: 0.0.9' "$(entries Version Icon SileoDepiction)"
check 'apt reads one version' 'a folder: in order, versions: 1' "$(apt)"

echo old >"$repository/InRelease"
addVersion "$version" https://example.org/repo/
before=$(sums)
check 'modes and files; the signature of the old lists is gone' "644 CydiaIcon.png
644 Packages
644 Packages.gz
644 Packages.xz
644 Release
644 com.zel.vorlatch_0.0.9_iphoneos-arm64.deb
644 com.zel.vorlatch_${version}_iphoneos-arm64.deb
644 depiction.json" "$(cd "$repository" && stat -c '%a %n' -- *)"
check 'nothing hidden is left or lost' .git "$(cd "$repository" && ls -d .[!.]*)"
addresses='Icon: https://example.org/repo/CydiaIcon.png'
addresses="SileoDepiction: https://example.org/repo/depiction.json"$'\n'"$addresses"
check 'both versions have addresses' "Version: 0.0.9
$addresses
Version: $version
$addresses" "$(entries Version Icon SileoDepiction)"
check 'the description, in both languages' 2 "$(grep -c '^ 让选定的进程' "$repository/Packages")"
check 'Release' "Architectures: iphoneos-arm64
Codename: ios
Components: main
Date: Tue, 14 Nov 2023 22:13:20 UTC
Description: Vorlatch for arm64 devices with a rootless jailbreak
Label: Vorlatch
Origin: Vorlatch
Suite: stable
Version: $version
$(cd "$repository" && for kind in md5 sha1 sha256 sha512; do
  [[ $kind == md5 ]] && echo MD5Sum: || echo "${kind^^}:"
  for file in Packages Packages.gz Packages.xz; do
    echo "$("${kind}sum" $file | cut -d ' ' -f 1) $(stat -c %s $file) $file"
  done
done)" "$(tr -s ' ' <"$repository/Release" | sed 's/^ //')"
check 'the tabs of the depiction' 'DepictionTabView 0.1
DepictionStackView English: Header Markdown Separator TableText TableText
DepictionStackView Changes: Markdown
DepictionStackView 中文: Header Markdown Separator TableText TableText
DepictionStackView 更新: Markdown' "$(python3 -c 'import json, sys
page = json.load(sys.stdin)
print(page["class"], page["minVersion"])
for tab in page["tabs"]:
    views = [view["class"].removeprefix("Depiction").removesuffix("View") for view in tab["views"]]
    print(tab["class"], tab["tabname"] + ":", *views)' <"$repository/depiction.json")"
check 'the changes of the version, in both languages' 2 \
  "$(grep -c "\"markdown\": \"## ${version//./\\.}" "$repository/depiction.json")"
check 'width and height of the icon' ' 0 0 0 180 0 0 0 180' \
  "$(od -An -t u1 -j 16 -N 8 "$repository/CydiaIcon.png" | tr -s ' ')"
check 'apt reads both versions' 'a folder: in order, versions: 2' "$(apt)"

# What the check of a repository finds.
# damage WHAT FOUND COMMAND...: the check finds it after the command ran in a copy of the repository.
damage() {
  local what=$1 found=$2 kept=$repository
  shift 2
  cp -R "$repository" "$here/damaged"
  repository=$here/damaged
  (cd "$repository" && "$@")
  check "$what" "$found" "$(apt | head -n 1 | cut -c -"${#found}")"
  repository=$kept
  rm -rf "$here/damaged"
}
damage 'another package' 'damaged: apt-get download: ' \
  truncate -s +1 com.zel.vorlatch_0.0.9_iphoneos-arm64.deb
damage 'a missing package' 'damaged: apt offers: com.zel.vorlatch_0.0.9' \
  rm com.zel.vorlatch_0.0.9_iphoneos-arm64.deb
damage 'changed lists' 'damaged: apt-get update: ' truncate -s +1 Packages Packages.gz Packages.xz
damage 'an old Packages.gz' 'damaged: Packages.gz differs' sh -c 'echo | gzip >Packages.gz'
damage 'no icon' 'damaged: https://example.org/repo/CydiaIcon.png is missing' rm CydiaIcon.png
damage 'no depiction' 'damaged: depiction.json is no JSON' truncate -s 99 depiction.json

# Again, some seconds later.
rm -rf "${copy:?}/build"
mkdir -p "$copy/build/device"
addVersion "$version" https://example.org/repo
check 'a second time: identical bytes' "$before" "$(sums)"

summary
