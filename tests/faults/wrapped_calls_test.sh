#!/usr/bin/env bash
# Usage: wrapped_calls_test.sh NM LIBRARY... -- FUNCTION...
#
# Checks that random_stories makes every function fail that the daemon's libraries call and that can fail. A
# function that the daemon calls for the first time has to be wrapped, or listed as harmless here.
set -euo pipefail

nm=$1
shift
libraries=()
while [[ $1 != -- ]]; do
  libraries+=("$1")
  shift
done
shift

# Functions of the compiler and the language, except for files, and functions that only access memory.
harmless='_GLOBAL_OFFSET_TABLE_|_Unwind_.*|__cxa_.*|__errno_location|__gxx_personality_v0|__stack_chk_fail'
harmless+='|__assert_fail|isalnum|mem.*|str.*|snprintf|getpid|stderr|stdout|pthread_mutex_(un)?lock|_Z[A-Z]*St.*|_ZTVN10__cxxabiv1.*|_Z(da|dl)P.*'
# These end the process if there is no memory; the daemon uses them only where it cannot continue.
harmless+='|_Zn[aw]m'
# These cannot fail on a regular file.
harmless+='|arc4random_buf|clearerr|fileno|f(un)?lockfile|lseek'
# A failure only leaves the files of a killed daemon behind.
harmless+='|opendir|readdir|closedir'
# Other tests cover these, with missing and incomplete libraries. malloc: only without a caller's buffer.
harmless+='|dlopen|dlsym|malloc'
# These platform functions cannot fail.
harmless+='|_ZN8vorlatch8platform(10startTimer|11runMainLoop|14localTimeStamp|15makeSerialQueue|21rootPrefixLibraryName|5async)(B|E).*'
# The simulated device makes these fail.
harmless+='|_ZN8vorlatch8platform(11getpriority|11setpriority|12proc_pidpath|13proc_listpids|20memorystatus_control|9proc_name)E.*'
harmless+='|_ZNK8vorlatch8platform11CancelTimerclE.*'
# Only vorlatchctl writes binary property lists.
harmless+='|_ZN8vorlatch8platform23writeBinaryPropertyList.*'
# Only the key of the page is a secret, which the daemon neither reads nor writes.
harmless+='|fchown|geteuid'

defined=$("$nm" --defined-only --format=posix "${libraries[@]}" | awk 'NF >= 2 { print $1 }')
missing=$("$nm" --undefined-only --format=posix "${libraries[@]}" | awk 'NF >= 2 { print $1 }' |
  sort -u | sed -E '/St10filesystem|basic_(filebuf|[io]?fstream)/s/^/on files: /' |
  grep -vxE "$harmless" | grep -vxFf <(printf '%s\n' "$@" "$defined") || true)
if [[ -n $missing ]]; then
  printf 'called by the daemon, and never made to fail:\n%s\n' "$missing"
  exit 1
fi
