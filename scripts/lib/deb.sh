# shellcheck shell=bash
# Makes the Debian package for the device; sourced after common.sh.

# Packages that make_deb needs.
# shellcheck disable=SC2034 # for the scripts
deb_packages=(dpkg coreutils findutils)

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
