# shellcheck shell=bash
# How the tests of the packaging compare; sourced by them.

set -euo pipefail
export LC_ALL=C.UTF-8

# What every check that fails is told with.
scenario=''
passed=0
failed=0

needPrograms() {
  local program
  for program in "$@"; do
    type -P "$program" >/dev/null || {
      printf '%s is not installed\n' "$program" >&2
      exit 1
    }
  done
}

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

# The last line of a test; fails when a check did.
summary() {
  printf '%d passed, %d failed\n' "$passed" "$failed"
  ((failed == 0))
}
