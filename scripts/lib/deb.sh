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

# make_deb STAGING VERSION OUTPUT: makes OUTPUT of the files in STAGING, which are all below
# STAGING/var/jb, with the control files of packaging/debian. The same bytes for the same files and
# commit; OUTPUT is whole or is as it was. Not to be called in a list, where errexit does not hold.
make_deb() (
  staging=$1 version=$2 output=$3
  dpkg --validate-version "$version" 2>/dev/null || die "not a package's version: ${version@Q}"
  checkStaging "$staging"
  time=$(debTime)
  # Beside the output, so that the last step is a move within one file system.
  work=$(mktemp -d "$output.XXXXXX") || die "nothing can be written beside $output"
  trap 'status=$?; rm -rf "$work"; ((status == 0)) || note "$output was not made"' EXIT
  trap 'exit 1' INT TERM HUP
  tree=$work/tree
  mkdir "$tree"
  cp -R --no-dereference --preserve=mode "$staging/." "$tree"
  # A directory that holds no file is the device's, with an owner of its own.
  find "$tree" -mindepth 1 -type d -empty -delete
  # How the device's file system rounds is not known here: each file up to the next KiB, and one for
  # each directory and link.
  size=$(find "$tree" -mindepth 1 \( -type f -printf '%s\n' -o -printf '1\n' \) |
    awk '{ sum += int(($1 + 1023) / 1024) } END { print sum + 0 }')
  mkdir "$tree/DEBIAN"
  sed -e "s/@VERSION@/$version/" -e "s/@INSTALLED_SIZE@/$size/" "$root/packaging/debian/control.in" \
    >"$tree/DEBIAN/control"
  (cd "$tree" && find var -type f -print0 | sort -z | xargs -0 md5sum) >"$tree/DEBIAN/md5sums"
  find "$root/packaging/debian" -name 'p*' -exec cp -t "$tree/DEBIAN" {} +
  chmod +x "$tree"/DEBIAN/p*
  # What depends on who makes the package, where and when.
  chmod -R a-st,u=rwX,go=rX "$tree"
  find "$tree" -exec touch --no-dereference --date="@$time" {} +
  SOURCE_DATE_EPOCH=$time quietly "$work/log" \
    dpkg-deb --root-owner-group --uniform-compression -Zgzip -z9 --build "$tree" "$work/deb"
  chmod 0644 "$work/deb"
  mv -f "$work/deb" "$output"
)
