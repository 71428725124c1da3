# shellcheck shell=bash
# How the tests of the packaging compare, and the copy of the checkout that they work in; sourced by them.

set -euo pipefail
export LC_ALL=C.UTF-8 GIT_CONFIG_GLOBAL=/dev/null GIT_CONFIG_NOSYSTEM=1
unset GIT_DIR GIT_WORK_TREE GIT_INDEX_FILE

checkout=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
here=$(mktemp -d)
trap 'rm -rf "$here"' EXIT

# What every check that fails is told with.
scenario=''
passed=0
failed=0

# check WHAT EXPECTED FOUND
check() {
  if [[ $2 == "$3" ]]; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    printf 'FAILED: %s%s\n' "${scenario:+$scenario: }" "$1"
    diff --label expected --label found -U 100 <(printf '%s\n' "$2") <(printf '%s\n' "$3") || true
  fi
}

# copyOfCheckout FOLDER: the packaging and what it needs of the scripts, as a commit of a known time.
copyOfCheckout() {
  mkdir -p "$1/scripts"
  cp -R "$checkout"/{packaging,VERSION,.gitignore,README*.md,CHANGELOG*.md} "$1"
  cp -R "$checkout/scripts/package" "$checkout/scripts/lib" "$1/scripts"
  git -C "$1" init -q
  git -C "$1" add .
  GIT_AUTHOR_DATE="@1700000000 +0100" GIT_COMMITTER_DATE="@1700000000 +0100" \
    git -C "$1" -c user.name=test -c user.email=test@localhost commit -q -m packaging
}

# makeIn CHECKOUT STAGING VERSION OUTPUT: makes a package, as a script of that checkout would.
makeIn() {
  # shellcheck disable=SC2016 # for the other shell
  bash -c 'source "$0/scripts/lib/common.sh"; source "$0/scripts/lib/device.sh"; make_deb "$@"' "$@"
}

# The last line of a test, which fails when a check did.
summary() {
  printf '%d passed, %d failed\n' "$passed" "$failed"
  ((failed == 0))
}
