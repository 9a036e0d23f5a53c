#!/usr/bin/env bash
# PlatformCheckTest.sh TOOL REFERENCE BROKEN: the reference platform passes every check, and each
# fault of the broken one fails the checks that are listed with it.
set -euo pipefail
tool=$1 reference=$2 broken=$3
run_broken() { LD_LIBRARY_PATH=${broken%/*} LD_PRELOAD=${broken##*/} "$tool" "$@"; }

"$tool" "$reference" || { echo "the reference platform violates the contract"; exit 1; }

failures=0
faults=$(VX_BROKEN=list run_broken --help | grep '^fault ' || true)
[ "$(wc -l <<<"$faults")" -ge 34 ] || { echo "no table of faults: $faults"; exit 1; }
while read -r _ fault checks; do
    for check in $checks; do
        status=0
        output=$(VX_BROKEN=$fault run_broken "$reference" "$check") || status=$?
        if [ $status -ne 1 ] || ! grep -q "^FAIL $check " <<<"$output"; then
            printf '%s did not find the fault %s (status %s):\n%s\n' \
                "$check" "$fault" "$status" "$output"
            failures=1
        fi
    done
done <<<"$faults"

# A library that is not a platform, and usage errors.
expect() { local wanted=$1 status=0; shift; "$@" >/dev/null 2>&1 || status=$?
    [ $status -eq "$wanted" ] || { echo "$*: status $status, expected $wanted"; failures=1; }; }
expect 1 "$tool" "$tool" memory.aligned
message=$("$tool" "$0" 2>&1 >/dev/null) || true
grep -q "no process starts .*invalid ELF header" <<<"$message" ||
    { echo "a file that is not a library: $message"; failures=1; }
expect 2 "$tool" /no/such/libOS.so
expect 2 "$tool" "$reference" memory.aligned no.such.check
expect 2 "$tool"
exit $failures
