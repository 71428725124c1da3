#!/usr/bin/env bash
# Usage: wrapped_calls_test.sh NM LIBRARY... -- FUNCTION...
#
# Whether the functions that fault_test makes to fail are all of those that the daemon's libraries
# call and that can fail: a call that is new in the daemon has to be wrapped, or named here.
set -euo pipefail

nm=$1
shift
libraries=()
while [[ $1 != -- ]]; do
  libraries+=("$1")
  shift
done
shift

# The compiler's and the language's own but for those on files, and what only looks at memory.
harmless='_GLOBAL_OFFSET_TABLE_|_Unwind_.*|__cxa_.*|__errno_location|__gxx_personality_v0|__stack_chk_fail'
harmless+='|__assert_fail|isalnum|mem.*|str.*|snprintf|getpid|stderr|stdout|pthread_mutex_(un)?lock|_Z[A-Z]*St.*|_ZTVN10__cxxabiv1.*|_Z(da|dl)P.*'
# Ends the process when there is none: the daemon asks so only for what it cannot do without.
harmless+='|_Zn[aw]m'
# They have no failure, on a regular file.
harmless+='|arc4random_buf|clearerr|fileno|f(un)?lockfile|lseek'
# Without them, what a killed daemon left stays.
harmless+='|opendir|readdir|closedir'
# Tried with libraries that lack functions or are not there, and only without a caller's buffer.
harmless+='|dlopen|dlsym|malloc'
# The seam knows no failure of these.
harmless+='|_ZN8vorlatch8platform(10startTimer|11runMainLoop|15makeSerialQueue|21rootPrefixLibraryName|5async)E.*'
harmless+='|_ZNK8vorlatch8platform11CancelTimerclE.*'
# Only vorlatchctl writes this form.
harmless+='|_ZN8vorlatch8platform23writeBinaryPropertyList.*'

defined=$("$nm" --defined-only --format=posix "${libraries[@]}" | awk 'NF >= 2 { print $1 }')
missing=$("$nm" --undefined-only --format=posix "${libraries[@]}" | awk 'NF >= 2 { print $1 }' |
  sort -u | sed -E '/St10filesystem|basic_(filebuf|[io]?fstream)/s/^/on files: /' |
  grep -vxE "$harmless" | grep -vxFf <(printf '%s\n' "$@" "$defined") || true)
if [[ -n $missing ]]; then
  printf 'called by the daemon, and never made to fail:\n%s\n' "$missing"
  exit 1
fi
