# shellcheck shell=bash
# Makes the Debian package for the device; sourced after common.sh.

# What make_deb takes.
# shellcheck disable=SC2034 # for the scripts
deb_packages=(dpkg coreutils findutils)

# Prints the time, in seconds since 1970, that files in a package bear: that of the commit.
debTime() {
  if [[ -n ${SOURCE_DATE_EPOCH-} ]]; then
    printf '%s\n' "$SOURCE_DATE_EPOCH"
  else
    git -C "$root" log -1 --format=%ct 2>/dev/null ||
      die "the package's time is unknown: this is no git checkout, and SOURCE_DATE_EPOCH is not set"
  fi
}

checkStaging() {
  local staging=$1 wrong
  [[ -d $staging ]] || die "there is no directory $staging to make a package of"
  wrong=$(find "$staging" -mindepth 1 ! -type d ! -path "$staging/var/jb/*" -print -quit)
  [[ -z $wrong ]] || die "outside /var/jb: $wrong"
  wrong=$(find "$staging" ! -type d ! -type f ! -type l -print -quit)
  [[ -z $wrong ]] || die "neither a file nor a link: $wrong"
  # Settings, status and log are the daemon's to write; a package that held them would replace them.
  wrong=$(find "$staging" ! -type d -path "$staging/var/jb/var/*" -print -quit)
  [[ -z $wrong ]] || die "the device's own data: $wrong"
  [[ -n $(find "$staging" -type f -print -quit) ]] || die "there is no file in $staging"
}

# The files without the directories that hold none: those are the device's, with owners of its own.
copyStaging() {
  cp -R --no-dereference --preserve=mode "$1/." "$2" &&
    find "$2" -mindepth 1 -type d -empty -delete
}

# In KiB, as the device's file system rounds is not known here: each file up to the next KiB, and
# one for each directory and link.
installedSize() {
  find "$1" -mindepth 1 \( -type f -printf '%s\n' -o -printf '1\n' \) |
    awk '{ sum += int(($1 + 1023) / 1024) } END { print sum + 0 }'
}

writeControl() {
  local tree=$1 version=$2 size script
  size=$(installedSize "$tree") &&
    mkdir "$tree/DEBIAN" &&
    sed -e "s/@VERSION@/$version/" -e "s/@INSTALLED_SIZE@/$size/" \
      "$root/packaging/debian/control.in" >"$tree/DEBIAN/control" || return
  (cd "$tree" && find var -type f -print0 | sort -z | xargs -0 md5sum) >"$tree/DEBIAN/md5sums" || return
  for script in preinst postinst prerm postrm; do
    [[ -f $root/packaging/debian/$script ]] || continue
    cp "$root/packaging/debian/$script" "$tree/DEBIAN/" && chmod +x "$tree/DEBIAN/$script" || return
  done
}

# What depends on who makes the package, where and when.
normalise() {
  find "$1" -type d -exec chmod 0755 {} + &&
    find "$1" -type f -perm /0111 -exec chmod 0755 {} + &&
    find "$1" -type f ! -perm /0111 -exec chmod 0644 {} + &&
    find "$1" -exec touch --no-dereference --date="@$2" {} +
}

layOut() {
  mkdir "$4" && copyStaging "$1" "$4" && writeControl "$4" "$2" && normalise "$4" "$3"
}

# In a subshell, so that its trap is its own.
makeDebHere() (
  local staging=$1 version=$2 output=$3 work time
  dpkg --validate-version "$version" 2>/dev/null || die "not a package's version: ${version@Q}"
  checkStaging "$staging"
  time=$(debTime) || exit
  # Beside the output, so that the last step is a move within one file system.
  work=$(mktemp -d "$output.XXXXXX") || die "nothing can be written beside $output"
  trap 'rm -rf "$work"' EXIT
  trap 'exit 130' INT
  trap 'exit 143' TERM HUP
  layOut "$staging" "$version" "$time" "$work/tree" || die "the package's files cannot be laid out"
  SOURCE_DATE_EPOCH=$time quietly "$work/log" \
    dpkg-deb --root-owner-group --uniform-compression -Zgzip -z9 --build "$work/tree" "$work/deb" ||
    die "dpkg-deb could not make the package"
  { chmod 0644 "$work/deb" && mv -f "$work/deb" "$output"; } || die "$output cannot be written"
)

# make_deb STAGING VERSION OUTPUT: makes OUTPUT of the files in STAGING, which are all below
# STAGING/var/jb, with the control files of packaging/debian. The same bytes for the same files and
# commit; OUTPUT is whole or is as it was.
make_deb() {
  local result=0
  makeDebHere "$@" || result=$?
  return "$result"
}
