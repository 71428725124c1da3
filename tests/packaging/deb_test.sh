#!/usr/bin/env bash
# Usage: deb_test.sh
#
# Makes packages of a small tree by make_deb, in copies of this checkout: the same bytes wherever and by
# whomever, what is in them, and what is left when one cannot be made. The last line says how many of its
# checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"

dist=$here/dist
copyOfCheckout "$here/one"
two="$here/elsewhere/much deeper/two"
git clone -q "$here/one" "$two"

putFile() { mkdir -p "$(dirname "$1")" && cat >"$1" && chmod "$2" "$1"; }

fillFirst() {
  putFile "$1/usr/libexec/vorlatchd" 4711 <<<daemon
  putFile "$1/usr/bin/vorlatchctl" 0700 < <(head -c 3000 /dev/zero)
  ln -s vorlatchctl "$1/usr/bin/vorlatch"
  putFile "$1/Library/LaunchDaemons/com.zel.vorlatch.plist" 0600 <<<plist
  putFile "$1/usr/share/man/man1/vorlatchctl.1" 0444 <<<page
  mkdir -p "$1/var/mobile/Library/Preferences"
}

# The same in another order, with other modes, and times that are long ago.
fillSecond() {
  mkdir -p "$1/usr/share/man/man1"
  ln "$here/one.tree/var/jb/usr/share/man/man1/vorlatchctl.1" "$1/usr/share/man/man1/"
  putFile "$1/Library/LaunchDaemons/com.zel.vorlatch.plist" 0666 <<<plist
  putFile "$1/usr/bin/vorlatchctl" 0755 < <(head -c 3000 /dev/zero)
  ln -s vorlatchctl "$1/usr/bin/vorlatch"
  putFile "$1/usr/libexec/vorlatchd" 0777 <<<daemon
  find "$1" -exec touch --no-dereference --date=@1 {} +
}

umask 022
fillFirst "$here/one.tree/var/jb"
(umask 077 && makeIn "$here/one" "$here/one.tree" 1.2.3 "$here/one.deb")
(umask 000 && fillSecond "$here/two.tree/var/jb")
mkdir "$here/tmp"
(
  umask 000
  cd /
  TMPDIR=$here/tmp TZ=Asia/Shanghai LC_ALL=C TAR_OPTIONS=--mode=0 \
    makeIn "$two" "$here/two.tree" 1.2.3 "$here/elsewhere/two.deb"
)
check 'two directories, identical bytes' "$(sha256sum <"$here/one.deb")" \
  "$(sha256sum <"$here/elsewhere/two.deb")"
# Of a time to come, as on a machine whose clock is behind.
SOURCE_DATE_EPOCH=4000000000 makeIn "$here/one" "$here/one.tree" 1.2.3 "$here/later.deb"
check 'another time' 2096-10-02 \
  "$(dpkg-deb --fsys-tarfile "$here/later.deb" | TZ=UTC tar --full-time -tvf - | awk '{ print $4 }' | sort -u)"
check 'the mode of the package' 644 "$(stat -c %a "$here/one.deb")"
check 'nothing else beside it, nor in TMPDIR' 'elsewhere later.deb one one.deb one.tree tmp two.tree:' \
  "$(cd "$here" && echo *):$(ls "$here/tmp")"

# Root's files whoever makes it; where the tests do not run as root, they showed that above.
if ((EUID == 0)); then
  chmod 0755 "$here"
  mkdir "$here/theirs"
  cp -R "$here/one.tree" "$here/theirs/tree"
  chown -R nobody "$here/theirs"
  HOME=/ SOURCE_DATE_EPOCH=1700000000 setpriv --reuid nobody --regid nogroup --clear-groups \
    bash -c "$(declare -f makeIn); makeIn \"\$@\"" - "$here/one" "$here/theirs/tree" 1.2.3 \
    "$here/theirs/one.deb"
  check 'by somebody else, identical bytes' "$(sha256sum <"$here/one.deb")" \
    "$(sha256sum <"$here/theirs/one.deb")"
fi

# What is in it.
check 'its parts' 'debian-binary control.tar.gz data.tar.gz' "$(ar t "$here/one.deb" | paste -sd ' ')"
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
$folder $stamp $jb/usr/share/
$folder $stamp $jb/usr/share/man/
$folder $stamp $jb/usr/share/man/man1/
$file 5 $stamp $jb/usr/share/man/man1/vorlatchctl.1
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
check 'every file has its sum, sorted and right' 4 "$(cd "$here/unpacked" && sort -c -k 2 DEBIAN/md5sums &&
  md5sum --check --quiet DEBIAN/md5sums && wc -l <DEBIAN/md5sums)"
# 3 KiB of the one file, 1 of each other, 10 directories and a link. The other fields are check-package's.
check 'version and size' 'Version: 1.2.3 Installed-Size: 17' \
  "$(dpkg-deb -f "$here/one.deb" Version Installed-Size | paste -sd ' ')"

# make [STAGING] [VERSION] [CHECKOUT]: over the package of before.
make() { makeIn "${3-$here/one}" "${1-$here/one.tree}" "${2-1.0}" "$dist/old.deb"; }
withFile() { rm -rf "$here/bad.tree" && mkdir -p "$(dirname "$here/bad.tree/$1")" && touch "$here/bad.tree/$1"; }

cannot 'no staging' 'there is no directory missing to make a package of' make "$here/missing"
mkdir -p "$here/empty/var/jb"
cannot 'an empty staging' 'there is no file in empty' make "$here/empty"
for version in '' one 1_0 $'1.0\nEssential: yes'; do
  cannot "version '$version'" "not a package's version: ${version@Q}" make "$here/one.tree" "$version"
done
for path in usr/bin/tool var/jbx/tool var/mobile/tool DEBIAN/control; do
  withFile "$path"
  cannot "$path" "outside /var/jb: bad.tree/$path" make "$here/bad.tree"
done
path=var/jb/var/mobile/Library/Preferences/com.zel.vorlatch.plist
withFile "$path"
cannot 'the settings' "the device's own data: bad.tree/$path" make "$here/bad.tree"
withFile var/jb/tool
mkfifo "$here/bad.tree/var/jb/pipe"
cannot 'a pipe' 'neither a file nor a link: bad.tree/var/jb/pipe' make "$here/bad.tree"
mv "$two/.git" "$here/git"
GIT_CEILING_DIRECTORIES=$here cannot 'no commit' \
  "the package's time is unknown: this is no git checkout, and SOURCE_DATE_EPOCH is not set" \
  make "$here/one.tree" 1.0 "$two"
cannot 'no directory for the output' 'nothing can be written beside nowhere/new.deb' \
  makeIn "$here/one" "$here/one.tree" 1.0 "$here/nowhere/new.deb"

# withFake SHELL-COMMANDS: a dpkg-deb that writes half a package, then runs these.
withFake() {
  mkdir -p "$here/bin"
  # shellcheck disable=SC2016 # for the program
  printf '#!/bin/sh\nfor output; do :; done\nprintf half >"$output"\n%s\n' "$1" >"$here/bin/dpkg-deb"
  chmod +x "$here/bin/dpkg-deb"
  PATH=$here/bin:$PATH make
}
not_made='dist/old.deb was not made'
fails='echo no space left >&2; exit 2'
cannot 'dpkg-deb fails' "$not_made" withFake "$fails"
check 'dpkg-deb fails: its own words are shown' 'no space left' "$(withFake "$fails" 2>&1 | head -n 1)"
for signal in INT TERM HUP; do
  cannot "SIG$signal" "$not_made" withFake "kill -$signal \$PPID"
done

# As on a full disk, writing ends within the files; to ignore the signal leaves the error.
outOfRoom() (
  trap '' XFSZ
  ulimit -f 4
  make "$here/large.tree"
)
mkdir -p "$here/large.tree/var/jb"
head -c 100000 /dev/urandom >"$here/large.tree/var/jb/large"
cannot 'no room' "$not_made" outOfRoom

summary
