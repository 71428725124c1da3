#!/usr/bin/env bash
# Usage: deb_test.sh
#
# Makes packages of a small tree by make_deb, in copies of this checkout: the same bytes wherever and by
# whomever, what is in them, and what is left when one cannot be made. The last line says how many of its
# checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

copyOfCheckout "$here/one"
two="$here/elsewhere/much deeper/two"
git clone -q "$here/one" "$two"

putFile() { mkdir -p "$(dirname "$1")" && cat >"$1" && chmod "$2" "$1"; }

fillFirst() {
  putFile "$1/usr/libexec/vorlatchd" 4711 <<<daemon
  putFile "$1/usr/bin/vorlatchctl" 0700 < <(head -c 3000 /dev/zero)
  ln -s vorlatchctl "$1/usr/bin/vorlatch"
  putFile "$1/Library/LaunchDaemons/com.zel.vorlatch.plist" 0600 <<<plist
  chmod g+s "$1/usr"
}

# The same in another order, with other modes and owners, and times that are long ago.
fillSecond() {
  putFile "$1/Library/LaunchDaemons/com.zel.vorlatch.plist" 0666 <<<plist
  putFile "$1/usr/bin/vorlatchctl" 0755 < <(head -c 3000 /dev/zero)
  ln -s vorlatchctl "$1/usr/bin/vorlatch"
  putFile "$1/usr/libexec/vorlatchd" 0777 <<<daemon
  find "$1" -exec touch --no-dereference --date=@1 {} +
  # Anybody else's files have another owner as it is.
  ((EUID != 0)) || chown -R 501 "$1"
}

umask 022
fillFirst "$here/one.tree/var/jb"
(umask 077 && makeIn "$here/one" "$here/one.tree" 1.2.3 "$here/one.deb")
(umask 000 && fillSecond "$here/two.tree/var/jb")
(
  umask 000
  cd /
  TZ=Asia/Shanghai LC_ALL=C TAR_OPTIONS=--mode=0 \
    makeIn "$two" "$here/two.tree" 1.2.3 "$here/elsewhere/two.deb"
)
check 'two directories, identical bytes' "$(sha256sum <"$here/one.deb")" \
  "$(sha256sum <"$here/elsewhere/two.deb")"
check 'the mode of the package' 644 "$(stat -c %a "$here/one.deb")"

# What is in it.
date='Nov 14 22:13 2023'
check 'its parts and their times' "$date debian-binary $date control.tar.gz $date data.tar.gz" \
  "$(TZ=UTC ar tv "$here/one.deb" | cut -d ' ' -f 4- | sed 's/^ *[0-9]* //' | paste -sd ' ')"
# list PART: a letter for the kind, the mode, owner, size, time and path of each entry.
list() { dpkg-deb "$1" "$here/one.deb" | TZ=UTC tar --full-time --numeric-owner -tvf - | tr -s ' '; }
folder='drwxr-xr-x 0/0 0' file='-rw-r--r-- 0/0' program='-rwxr-xr-x 0/0' stamp='2023-11-14 22:13:20' jb=./var/jb
check 'paths, owners, modes and times' "$folder $stamp ./
$folder $stamp ./var/
$folder $stamp $jb/
$folder $stamp $jb/Library/
$folder $stamp $jb/Library/LaunchDaemons/
$file 6 $stamp $jb/Library/LaunchDaemons/com.zel.vorlatch.plist
$folder $stamp $jb/usr/
$folder $stamp $jb/usr/bin/
$program 3000 $stamp $jb/usr/bin/vorlatchctl
$folder $stamp $jb/usr/libexec/
$program 7 $stamp $jb/usr/libexec/vorlatchd
lrwxrwxrwx 0/0 0 $stamp $jb/usr/bin/vorlatch -> vorlatchctl" "$(list --fsys-tarfile)"
check 'control files, their owners, modes and times' "$folder $stamp ./
$file N $stamp ./control
$file N $stamp ./md5sums
$program N $stamp ./postinst
$program N $stamp ./postrm
$program N $stamp ./prerm" "$(list --ctrl-tarfile | sed -E 's,^(-.* 0/0) [0-9]+,\1 N,')"
dpkg-deb -R "$here/one.deb" "$here/unpacked"
for script in postinst prerm postrm; do
  # A device without a jailbreak's help has no /bin/sh.
  check "$script is the checkout's, with the jailbreak's shell" '#!/var/jb/bin/sh' \
    "$(cd "$here/unpacked/DEBIAN" && cmp "$checkout/packaging/debian/$script" "$script" && head -n 1 "$script")"
done
check 'every file has its sum, sorted and right' 3 "$(cd "$here/unpacked" && sort -c -k 2 DEBIAN/md5sums &&
  md5sum --check --quiet DEBIAN/md5sums && wc -l <DEBIAN/md5sums)"
# The largest file counts 3 KiB; each other file, the 7 directories and the link count 1. scripts/check-package
# checks the other fields.
check 'version and size' 'Version: 1.2.3 Installed-Size: 13' \
  "$(dpkg-deb -f "$here/one.deb" Version Installed-Size | paste -sd ' ')"

# Makes a package that cannot be finished: a limit on the size of files ends writing as a full disk would.
# Ignoring the limit's signal lets the error reach dpkg-deb.
mkdir -p "$here/large.tree/var/jb" "$here/dist"
head -c 100000 /dev/urandom >"$here/large.tree/var/jb/large"
echo old >"$here/dist/a.deb"
outOfRoom() (
  trap '' XFSZ
  ulimit -f 4
  makeIn "$here/one" "$here/large.tree" 1.0 "$here/dist/a.deb"
)
check 'no room: fails, says why, and leaves the old package' '1 File too large a.deb: old' \
  "$(said=$(outOfRoom 2>&1) && echo 0 || echo "$? $(grep -o -m 1 'File too large' <<<"$said")") \
$(ls -A "$here/dist"): $(<"$here/dist/a.deb")"

summary
