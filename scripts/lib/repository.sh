# shellcheck shell=bash
# Makes the APT repository of scripts/package --repository; sourced after common.sh.

# Packages that it needs.
# shellcheck disable=SC2034 # for scripts/package
repository_packages=(apt-utils xz-utils)

# requireRepository FOLDER URL: makes the folder if it is missing, and ends the script if no repository can
# be written there or the URL is of no use.
requireRepository() {
  local foreign package known='com\.zel\.vorlatch_[^/]+_iphoneos-arm64\.deb'
  known+='|Packages(\.[gx]z)?|Release(\.gpg)?|InRelease|CydiaIcon\.png|depiction\.json'
  [[ -z $2 || $2 =~ ^https?://[[:alnum:]./:_~%@-]+$ ]] ||
    die "--url takes the address of the repository, like https://example.org/repo, not $2"
  { mkdir -p "$1" 2>/dev/null && [[ -w $1 ]]; } ||
    die "$1 is no folder that you may write to; give --repository another one"
  # Hidden files, such as .git, are left alone.
  foreign=$(find "$1" -mindepth 1 -maxdepth 1 -regextype posix-extended ! -name '.*' \
    ! \( -type f -regex ".*/($known)" \) -print -quit)
  [[ -z $foreign ]] || die "$foreign is not of this repository; move it away," \
    "or give --repository a new folder"
  for package in "$1"/*.deb; do
    [[ ! -e $package ]] || dpkg-deb --field "$package" >/dev/null 2>&1 ||
      die "$package cannot be read as a package; move it away, then try again"
  done
}

# makeRepository PACKAGE FOLDER URL: adds the package to the flat repository in FOLDER, which
# requireRepository has seen. The same packages, commit and URL give the same bytes. Do not call it in a &&
# or || list, where errexit has no effect.
makeRepository() (
  package=$1 folder=$2 url=${3%/} fields='' options=()
  # Everything but the package itself is made here first, so that a failure keeps the old lists.
  new=$(mktemp -d "$folder/.new.XXXXXX")
  trap 'rm -rf "$new"' EXIT
  install -m 644 "$package" "$new"
  mv -f "$new/${package##*/}" "$folder"
  [[ -z $url ]] || fields="SileoDepiction: $url/depiction.json\nIcon: $url/CydiaIcon.png\n"
  (cd "$folder" && apt-ftparchive packages .) | sed "s|^Description:|$fields&|" >"$new/Packages"
  gzip -9 -n --keep "$new/Packages"
  xz -9 --keep "$new/Packages"
  time=$(git -C "$root" log -1 --format=%ct)
  for field in Origin=Vorlatch Label=Vorlatch Suite=stable Codename=ios "Version=$(<"$root/VERSION")" \
    "Date=$(date --utc --date="@$time" '+%a, %d %b %Y %T UTC')" Architectures=iphoneos-arm64 \
    Components=main "Description=Vorlatch for arm64 devices with a rootless jailbreak"; do
    options+=(-o "APT::FTPArchive::Release::$field")
  done
  # Not into the folder whose files it lists.
  apt-ftparchive "${options[@]}" release "$new" >"$device/Release"
  mv "$device/Release" "$new"
  python3 "$root/packaging/depiction.py" >"$new/depiction.json"
  cp "$root/packaging/icon.png" "$new/CydiaIcon.png"
  chmod 644 "$new"/*
  # Signatures of the old lists.
  rm -f "$folder/InRelease" "$folder/Release.gpg"
  mv -f "$new"/* "$folder"
)
