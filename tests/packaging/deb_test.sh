#!/usr/bin/env bash
# Usage: deb_test.sh [CHECKOUT]
#
# Makes packages of a small tree by make_deb, in copies of this checkout's packaging: the same bytes
# wherever and by whomever, what is in them, and what is left when one cannot be made. The last line
# says how many of its checks passed; ends with 1 when one failed.
# shellcheck source=tests/packaging/checks.sh
source "$(dirname "${BASH_SOURCE[0]}")/checks.sh"
checkout=$(cd "${1:-$(dirname "${BASH_SOURCE[0]}")/../..}" && pwd -P)

needPrograms ar dpkg dpkg-deb git gzip tar

here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT

# A commit of the packaging alone, at a known time; then a clone of it elsewhere.
commit_time=1700000000
export GIT_AUTHOR_DATE="@$commit_time +0100" GIT_COMMITTER_DATE="@$commit_time +0100"
export GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
unset SOURCE_DATE_EPOCH GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE
mkdir -p "$here/one/scripts/lib" "$here/elsewhere/much deeper"
cp "$checkout/scripts/lib/common.sh" "$checkout/scripts/lib/deb.sh" "$here/one/scripts/lib"
cp -R "$checkout/packaging" "$here/one"
git -C "$here/one" init -q
git -C "$here/one" add .
git -C "$here/one" -c user.name=test -c user.email=test@localhost commit -q -m packaging
two="$here/elsewhere/much deeper/two"
git clone -q "$here/one" "$two"

# makeIn CHECKOUT STAGING VERSION OUTPUT: as a script of that checkout would.
makeIn() {
  local copy=$1
  shift
  bash -c 'source "$0/scripts/lib/common.sh"; source "$0/scripts/lib/deb.sh"; make_deb "$@"' \
    "$copy" "$@"
}

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
check 'nothing else beside it' 'elsewhere later.deb one one.deb one.tree tmp two.tree' \
  "$(cd "$here" && echo *)"
check 'nothing left in TMPDIR' '' "$(ls "$here/tmp")"

# Root's files whoever makes it; where the tests do not run as root, they showed that above.
if ((EUID == 0)); then
  chmod 0755 "$here"
  mkdir "$here/theirs"
  cp -R "$here/one.tree" "$here/theirs/tree"
  chown -R nobody "$here/theirs"
  HOME=/ SOURCE_DATE_EPOCH=$commit_time setpriv --reuid nobody --regid nogroup --clear-groups \
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
dpkg-deb -e "$here/one.deb" "$here/control"
(umask 022 && dpkg-deb -x "$here/one.deb" "$here/unpacked")
for script in postinst prerm postrm; do
  # A device without a jailbreak's help has no /bin/sh.
  check "$script is the checkout's, with the jailbreak's shell" '#!/var/jb/bin/sh' \
    "$(cmp "$checkout/packaging/debian/$script" "$here/control/$script" && head -n 1 "$here/control/$script")"
done
check 'every file has its sum, sorted and right' 4 "$(cd "$here/unpacked" && sort -c -k 2 ../control/md5sums &&
  md5sum --check --quiet ../control/md5sums && wc -l <../control/md5sums)"
# 3 KiB of the one file, 1 of each other, 10 directories and a link. The other fields are check-package's.
check 'version and size' 'Version: 1.2.3 Installed-Size: 17' \
  "$(dpkg-deb -f "$here/one.deb" Version Installed-Size | paste -sd ' ')"

# What cannot be made: a message, and the package of before as it was, with nothing beside it.
mkdir "$here/dist" "$here/bin"
old=$here/dist/old.deb
cannot() {
  local what=$1 message=$2 said status=0
  shift 2
  echo old >"$old"
  said=$("$@" 2>&1) || status=$?
  check "$what: refused" yes "$( ((status != 0)) && echo yes || echo no)"
  check "$what: says why" "$message" "$(tail -n 1 <<<"$said" | sed "s,$here/,,g; s/^[^:]*: //")"
  check "$what: the old package" old "$(cat "$old")"
  check "$what: nothing beside it" old.deb "$(ls -A "$here/dist")"
}
withFile() { rm -rf "$here/bad.tree" && mkdir -p "$(dirname "$here/bad.tree/$1")" && touch "$here/bad.tree/$1"; }

cannot 'no staging' 'there is no directory missing to make a package of' \
  makeIn "$here/one" "$here/missing" 1.0 "$old"
mkdir -p "$here/empty/var/jb"
cannot 'an empty staging' 'there is no file in empty' makeIn "$here/one" "$here/empty" 1.0 "$old"
for version in '' one 1_0 $'1.0\nEssential: yes'; do
  cannot "version '$version'" "not a package's version: ${version@Q}" \
    makeIn "$here/one" "$here/one.tree" "$version" "$old"
done
for path in usr/bin/tool var/jbx/tool var/mobile/tool DEBIAN/control; do
  withFile "$path"
  cannot "$path" "outside /var/jb: bad.tree/$path" makeIn "$here/one" "$here/bad.tree" 1.0 "$old"
done
path=var/jb/var/mobile/Library/Preferences/com.zel.vorlatch.plist
withFile "$path"
cannot 'the settings' "the device's own data: bad.tree/$path" \
  makeIn "$here/one" "$here/bad.tree" 1.0 "$old"
withFile var/jb/tool
mkfifo "$here/bad.tree/var/jb/pipe"
cannot 'a pipe' 'neither a file nor a link: bad.tree/var/jb/pipe' \
  makeIn "$here/one" "$here/bad.tree" 1.0 "$old"
cp -R "$here/one" "$here/exported"
rm -rf "$here/exported/.git"
cannot 'no commit' \
  "the package's time is unknown: this is no git checkout, and SOURCE_DATE_EPOCH is not set" \
  env GIT_CEILING_DIRECTORIES="$here" bash -c "$(declare -f makeIn); makeIn \"\$@\"" - \
  "$here/exported" "$here/one.tree" 1.0 "$old"
check 'no directory for the output' 'nothing can be written beside nowhere/new.deb' \
  "$(makeIn "$here/one" "$here/one.tree" 1.0 "$here/nowhere/new.deb" 2>&1 | tail -n 1 | sed "s,$here/,,; s/^[^:]*: //")"

# A dpkg-deb that ends half-way, and one in whose midst somebody presses Ctrl-C.
fakeDpkgDeb() {
  cat >"$here/bin/dpkg-deb" <<FAKE
#!/bin/sh
for output; do :; done
printf half >"\$output"
$1
FAKE
  chmod +x "$here/bin/dpkg-deb"
}
withFake() { PATH=$here/bin:$PATH makeIn "$here/one" "$here/one.tree" 1.0 "$old"; }
fakeDpkgDeb 'echo no space left >&2; exit 2'
not_made='dist/old.deb was not made'
cannot 'dpkg-deb fails' "$not_made" withFake
check 'dpkg-deb fails: its own words are shown' 'no space left' "$(withFake 2>&1 | head -n 1)"
for signal in INT TERM HUP; do
  fakeDpkgDeb "kill -$signal \$PPID"
  cannot "SIG$signal" "$not_made" withFake
done

# As on a full disk, writing ends within the files; to ignore the signal leaves the error.
outOfRoom() (
  trap '' XFSZ
  ulimit -f 4
  makeIn "$here/one" "$here/large.tree" 1.0 "$old"
)
mkdir -p "$here/large.tree/var/jb"
head -c 100000 /dev/urandom >"$here/large.tree/var/jb/large"
cannot 'no room' "$not_made" outOfRoom

summary
