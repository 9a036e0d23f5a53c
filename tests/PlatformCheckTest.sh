#!/usr/bin/env bash
# PlatformCheckTest.sh TOOL REFERENCE BROKEN MEMORY SOURCE: the reference platform keeps every
# promise and the one in memory the contract; each fault of the broken one fails the checks that
# are listed with it; each promise is in the header or guide that the check names.
set -euo pipefail
tool=$1 reference=$2 broken=$3 memory=$4 source=$5
failures=0
fail() { printf '%s\n' "$*"; failures=1; }
run_broken() { LD_LIBRARY_PATH=${broken%/*} LD_PRELOAD=${broken##*/} "$tool" "$@"; }

output=$("$tool" --level reference "$reference") || fail "the reference platform: $output"
output=$("$tool" "$memory") || fail "the platform in memory: $output"
! "$tool" --level desktop "$memory" >/dev/null || fail "the platform in memory has files on disk"
# Every check beyond the contract is listed as skipped, with its level.
diff <("$tool" --list | awk '$2 != "contract" { print $1, $2 }') \
    <(awk '$1 == "skip" { print $2, $3 }' <<<"$output") || fail "not listed as skipped"

words() { sed -E 's,^ *///? ?,,; s/\\[pr][a-z]* //g' "$@" | tr -s ' \n' ' '; }
while read -r name _ file promise; do
    text=$(words "$source/ole/Vx/platform/${file%:}" 2>/dev/null || words "$source/docs/${file%:}")
    grep -qF -- "$promise" <<<"$text" || fail "$name: ${file%:} does not say: $promise"
done < <("$tool" --list)

faults=$(VX_BROKEN=list run_broken --help | grep '^fault ' || true)
[ "$(wc -l <<<"$faults")" -ge 60 ] || fail "no table of faults: $faults"
unused=$("$tool" --list | awk '{ print $1 }' | sort | comm -23 - <(tr ' ' '\n' <<<"$faults" | sort))
[ -z "$unused" ] || fail "no fault for the check" $unused
while read -r _ fault checks; do
    for check in $checks; do
        status=0
        output=$(VX_BROKEN=$fault run_broken --level reference "$reference" "$check") || status=$?
        [ $status -eq 1 ] && grep -q "^FAIL $check " <<<"$output" ||
            fail "$check did not find the fault $fault (status $status): $output"
    done
done <<<"$faults"

# A library that is not a platform, and usage errors.
expect() { local wanted=$1 status=0; shift; "$@" >/dev/null 2>&1 || status=$?
    [ $status -eq "$wanted" ] || fail "$*: status $status, expected $wanted"; }
expect 1 "$tool" "$tool" memory.aligned
message=$("$tool" "$0" 2>&1 >/dev/null) || true
grep -q "no process starts .*invalid ELF header" <<<"$message" ||
    fail "a file that is not a library: $message"
expect 2 "$tool" /no/such/libOS.so
expect 2 "$tool" "$reference" memory.aligned no.such.check
expect 2 "$tool" "$reference" disk.links # of another level
expect 2 "$tool" --level strict "$reference"
expect 2 "$tool"
expect 2 bash -c '"$1" --list >/dev/full' - "$tool"
exit $failures
