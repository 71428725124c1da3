#!/usr/bin/env bash
# Usage: completion_scripts_test.sh ROOT
#
# Types at an interactive bash and an interactive zsh, each with its completion script of the root
# that vorlatchctl is installed in, and compares the arguments that the shell takes in the end: what
# is completed has to come through the shell's own quoting. Nothing is written to ROOT.
set -euo pipefail
root=${1:?usage: completion_scripts_test.sh ROOT}
type -P bash zsh script >/dev/null  # fails when one is missing

# What is typed, with ~ for the Tab key, and the arguments that come of it. A quotation mark that is
# still open is closed by the completion.
cases=$(
  cat <<'CASES'
sta~                            -> <status>
--js~show kb~                   -> <--json><show><kbd>
set kbd Nice~5                  -> <set><kbd><NiceValue=5>
set kbd JetsamPriority=ho~      -> <set><kbd><JetsamPriority=home>
set kbd Strip~t~Rem~x           -> <set><kbd><StripManaged=true><Remark=x>
unset kbd Che~                  -> <unset><kbd><CheckInterval>
show com.te~                    -> <show><com.tencent.xin>
show cost~                      -> <show><cost of "a" $b>
show 'cost~                     -> <show><cost of "a" $b>
match vor:~                     -> <match><vor: it's run>
match vor\:\ i~                 -> <match><vor: it's run>
match "vor: i~                  -> <match><vor: it's run>
set vor:\ it\'s\ r~Nice~-3      -> <set><vor: it's run><NiceValue=-3>
set "cost of \"a\" \$b" Jet~m~  -> <set><cost of "a" $b><JetsamPriority=mail>
check edit~                     -> <check><edited.plist>
check --no-p~edit~              -> <check><--no-processes><edited.plist>
import edit~                    -> <import><edited.plist>
export --force edit~            -> <export><--force><edited.plist>
status edit~                    -> <status><edit>
CASES
)

here=$(mktemp -d)
process=''
finish() {
  [[ -z $process ]] || kill -KILL "$process"
  rm -rf "$here"
}
trap finish EXIT

cp -a "$root/." "$here/root"
mkdir -p "$here/root/var/mobile/Library/Preferences" "$here/home"
control=$here/root/usr/bin/vorlatchctl
for target in kbd com.tencent.xin "cost of \"a\" \$b"; do
  "$control" set "$target" NiceValue=1 >"$here/set.txt"
done
touch "$here/home/edited.plist"

# A process that is found by name, blocked on a pipe that nobody writes to.
cp "$(type -P cat)" "$here/vor: it's run"
mkfifo "$here/nothing"
"$here/vor: it's run" <>"$here/nothing" >/dev/null &
process=$!
disown "$process"
until [[ $(<"/proc/$process/comm") == "vor: it's run" ]]; do kill -0 "$process"; done

# In place of the program, which completion goes on to ask.
show='vorlatchctl() { printf "\nARGUMENTS:"; [ $# -eq 0 ] || printf "<%s>" "$@"; echo; }'
cat >"$here/home/bashrc" <<RC
source '$here/root/usr/share/bash-completion/completions/vorlatchctl'
$show
RC
cat >"$here/home/.zshrc" <<RC
fpath=('$here/root/usr/share/zsh/site-functions' \$fpath)
autoload -U compinit && compinit -u -D
$show
RC

keys=$(sed 's/ *-> .*//; s/~/\t/g; s/^/vorlatchctl /' <<<"$cases")
expected=$(sed -n 's/.* -> //p' <<<"$cases")

# Types the lines at the shell and prints the arguments that it took.
typeAt() {
  (
    cd "$here/home"
    printf '%s\nexit\n' "$keys" |
      env -i HOME="$here/home" PATH="$here/root/usr/bin:$PATH" TERM=dumb LC_ALL=C.UTF-8 \
        timeout 60 script -qec "$1" "$here/typescript" >"$here/screen.txt"
    tr -d '\r' <"$here/screen.txt" | sed -n 's/^.*ARGUMENTS://p'
  )
}

failed=false
for shell in "bash --noprofile --rcfile $here/home/bashrc -i" 'zsh --no-global-rcs -i'; do
  if difference=$(diff <(printf '%s\n' "$expected") <(typeAt "$shell")); then
    printf '%s: %d lines completed\n' "${shell%% *}" "$(wc -l <<<"$cases")"
  else
    printf '%s: expected <, completed >\n%s\n' "${shell%% *}" "$difference" >&2
    failed=true
  fi
done
! $failed
