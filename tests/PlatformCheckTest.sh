#!/usr/bin/env bash
# PlatformCheckTest.sh TOOL REFERENCE BROKEN: the reference platform keeps the whole contract,
# and each single fault of a broken one is found by the check that stands for it.
set -euo pipefail
tool=$1 reference=$2 broken=$3

"$tool" "$reference" || { echo "the reference platform breaks its own contract"; exit 1; }

failures=0
while read -r fault check; do
    status=0
    output=$(VX_BROKEN=$fault LD_LIBRARY_PATH=${broken%/*} LD_PRELOAD=${broken##*/} \
        "$tool" "$reference" "$check") || status=$?
    if [ $status -ne 1 ] || ! grep -q "^FAIL $check " <<<"$output"; then
        printf 'the fault "%s" was not found by "%s" (status %s):\n%s\n' \
            "$fault" "$check" "$status" "$output"
        failures=1
    fi
done <<'FAULTS'
misaligned memory.aligned
zero-shared memory.distinct
null-crashes memory.null
null-when-exhausted memory.exhaustion
ascii-signed text.ascii
length-ignored text.lengths
surrogate-passes text.no-code-points
latin1 text.scalars
malformed-dropped text.malformed
clock-backwards clock
clock-coarse clock
clock-seconds clock
uuid-version uuid.bits
uuid-repeats uuid.unique
uuid-fork uuid.fork
stack-clears call-stack
no-processors processors
lock-open lock.excludes
try-lies lock.reentrant
one-lock lock.independent
thread-same thread-id
thread-fork thread-id.fork
in-place files.replace
neighbour files.mode
neighbour files.links
neighbour files.exception
neighbour files.kill
short-read files.read
missing-opens files.none
names-truncated files.names
separator files.separator
folder-open-end folders
one-section settings.values
one-scope settings.scopes
values-trimmed settings.bytes
save-forgets settings.bytes
FAULTS

# A library that is no platform, and calls that are wrong.
expect() { local wanted=$1 status=0; shift; "$@" >/dev/null 2>&1 || status=$?
    [ $status -eq "$wanted" ] || { echo "$*: status $status, expected $wanted"; failures=1; }; }
expect 1 "$tool" "$tool" memory.aligned
message=$("$tool" "$0" 2>&1 >/dev/null) || true
grep -q "no process starts .*invalid ELF header" <<<"$message" ||
    { echo "a file that is no library: $message"; failures=1; }
expect 2 "$tool" /no/such/libOS.so
expect 2 "$tool" "$reference" memory.aligned no.such.check
expect 2 "$tool"
exit $failures
