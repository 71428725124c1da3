# shellcheck shell=bash
# Makes the Debian package for the device; sourced after common.sh.

# Packages that make_deb needs.
# shellcheck disable=SC2034 # for the scripts
deb_packages=(dpkg coreutils findutils)

# Prints the time of the files in a package, in seconds since 1970: the time of the commit.
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
  # A package must not contain preferences, status or log, because it would replace the daemon's files.
  wrong=$(find "$staging" ! -type d -path "$staging/var/jb/var/*" -print -quit)
  [[ -z $wrong ]] || die "the device's own data: $wrong"
  [[ -n $(find "$staging" -type f -print -quit) ]] || die "there is no file in $staging"
}

# make_deb STAGING VERSION OUTPUT: makes the package OUTPUT from the files in STAGING/var/jb and the
# control files in packaging/debian. The same files and commit give the same bytes. A failure leaves
# OUTPUT unchanged. Do not call it in a && or || list, where errexit has no effect.
make_deb() (
  staging=$1 version=$2 output=$3
  dpkg --validate-version "$version" 2>/dev/null || die "not a package's version: ${version@Q}"
  checkStaging "$staging"
  time=$(debTime)
  # Beside the output, so that the last step is an atomic rename within one file system.
  work=$(mktemp -d "$output.XXXXXX") || die "nothing can be written beside $output"
  trap 'status=$?; rm -rf "$work"; ((status == 0)) || note "$output was not made"' EXIT
  trap 'exit 1' INT TERM HUP
  tree=$work/tree
  mkdir "$tree"
  cp -R --no-dereference --preserve=mode "$staging/." "$tree"
  # Empty directories are left out: on the device they exist, with their own owners.
  find "$tree" -mindepth 1 -type d -empty -delete
  # The device's block size is unknown: rounds each file up to a full KiB, and counts 1 KiB for each
  # directory and link.
  size=$(find "$tree" -mindepth 1 \( -type f -printf '%s\n' -o -printf '1\n' \) |
    awk '{ sum += int(($1 + 1023) / 1024) } END { print sum + 0 }')
  mkdir "$tree/DEBIAN"
  sed -e "s/@VERSION@/$version/" -e "s/@INSTALLED_SIZE@/$size/" "$root/packaging/debian/control.in" \
    >"$tree/DEBIAN/control"
  (cd "$tree" && find var -type f -print0 | sort -z | xargs -0 md5sum) >"$tree/DEBIAN/md5sums"
  find "$root/packaging/debian" -name 'p*' -exec cp -t "$tree/DEBIAN" {} +
  chmod +x "$tree"/DEBIAN/p*
  # Sets modes and times, which otherwise depend on who builds the package and when.
  chmod -R a-st,u=rwX,go=rX "$tree"
  find "$tree" -exec touch --no-dereference --date="@$time" {} +
  SOURCE_DATE_EPOCH=$time quietly "$work/log" \
    dpkg-deb --root-owner-group --uniform-compression -Zgzip -z9 --build "$tree" "$work/deb"
  chmod 0644 "$work/deb"
  mv -f "$work/deb" "$output"
)
