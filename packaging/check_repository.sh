#!/usr/bin/env bash
# Usage: check_repository.sh FOLDER
#
# Lets Debian's apt read the repository in FOLDER as a device's would: it updates, lists the versions, and
# downloads each. Prints the first difference from the files in FOLDER and ends with 1 if there is one.
# The system's apt is left alone: all of its files are in a temporary directory here.
set -euo pipefail
export LC_ALL=C.UTF-8

repository=$(realpath -- "$1")
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT

fail() {
  printf '%s: %s\n' "${repository##*/}" "$*"
  exit 1
}

mkdir -p "$here"/etc/{apt.conf.d,preferences.d,sources.list.d,trusted.gpg.d} \
  "$here/state/lists/partial" "$here/cache/archives/partial" "$here/downloads"
touch "$here/status"
cat >"$here/apt.conf" <<END
Dir "$here/"; Dir::Etc "etc"; Dir::State "state"; Dir::State::status "$here/status"; Dir::Cache "cache";
APT::Architecture "iphoneos-arm64"; APT::Architectures { "iphoneos-arm64"; };
APT::Sandbox::User "root"; Acquire::Languages "none";
END
export APT_CONFIG=$here/apt.conf
echo "deb [trusted=yes] file:${repository// /%20} ./" >"$here/etc/sources.list"

said=$(apt-get -qq update 2>&1 || echo failed)
[[ -z $said ]] || fail "apt-get update: $said"
offered=$(apt-cache show com.zel.vorlatch | sed -n 's,^Filename: \./,,p' | sort)
there=$(cd "$repository" && printf '%s\n' *.deb)
[[ $offered == "$there" ]] || fail "apt offers: $offered, not: $there"
cd "$here/downloads"
for package in $there; do
  version=$(dpkg-deb --field "$repository/$package" Version)
  said=$(apt-get -qq download "com.zel.vorlatch=$version" 2>&1) || fail "apt-get download: $said"
  cmp -s "$repository/$package" "com.zel.vorlatch_${version}_iphoneos-arm64.deb" || fail "$package differs"
done

cd "$repository"
gzip -dc Packages.gz | cmp -s Packages - || fail 'Packages.gz differs from Packages'
xz -dc Packages.xz | cmp -s Packages - || fail 'Packages.xz differs from Packages'
while read -r url; do
  [[ -f ${url##*/} ]] || fail "$url is missing"
done < <(sed -nE 's/^(Icon|SileoDepiction): //p' Packages)
python3 -m json.tool depiction.json >"$here/depiction" 2>&1 || fail 'depiction.json is no JSON'
echo "${repository##*/}: in order, versions: $(wc -l <<<"$there")"
