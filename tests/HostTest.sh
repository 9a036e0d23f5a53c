#!/usr/bin/env bash
# HostTest.sh HOST EDITOR_INI: runs the example host as a user would, in a home of its own.
set -euo pipefail
host=$1 ini=$2

home=$(mktemp -d)
trap 'rm -rf "$home"' EXIT
export XDG_CONFIG_HOME=$home/config XDG_DATA_HOME=$home/data XDG_CACHE_HOME=$home/cache
cd "$home"

fail() { printf 'FAILED: %s\n' "$*"; exit 1; }

# refuses WHAT FILE REASON: the host prints one line with FILE and REASON to standard error and
# nothing to standard output, and exits with status 1.
refuses()
{
    local status=0
    "$host" "$2" >out 2>err || status=$?
    [ "$status" -eq 1 ] || fail "$1: exit status $status"
    [ ! -s out ] || fail "$1: it went on and printed $(cat out)"
    [ "$(wc -l <err)" -eq 1 ] || fail "$1: not one line: $(cat err)"
    grep -qF "$2" err || fail "$1: does not name the file: $(cat err)"
    grep -qF "$3" err || fail "$1: does not say why: $(cat err)"
}

# shows TEXT: the last run printed TEXT.
shows() { grep -qF -- "$1" out || fail "not printed: $1, but: $(cat out)"; }

: >empty.ini
refuses "a missing file" missing.ini "not there"
refuses "a folder" . "not a file"
refuses "an empty file" empty.ini "empty"

"$host" "$ini" >out 2>err || fail "exit status $?"
[ ! -s err ] || fail "prints to standard error: $(cat err)"
shows "this is the first run"
shows "[Recent Files]"
shows "Straße nach Süden, Teil 1"
shows "notes      (empty)"
shows "clip Küste_001.mxf, 3f2504e0-4f89-11d3-9a0c-0305e82c3301"
shows "1920 x 1080 pixels, 10 bits a component"
shows "stored as xd5c, played out as M701"
shows "the volume is 0.85"
shows "6 of 6 comments"
[ "$(grep -oP '^stop: \K\d+' out | tr '\n' ' ')" = "10 150 250 " ] || fail "order: $(cat out)"

copy=$(find "$home" -name editor.ini)
[ -n "$copy" ] || fail "no copy in the home folder"
shows "${copy%editor.ini}"
# One value is changed; every other line is there, section by section.
sort <"$ini" | sed 's/^volume=0.85/volume=0.60/' | grep -v '^.$' >expected
sort <"$copy" | grep -v '^.$' >actual
diff expected actual || fail "the copy has other lines"

log=$(find "$home" -name PooledObjects.log)
grep -q '^Frames of the example: maxInUse 2 ' "$log" || fail "pool log: $(cat "$log")"

"$host" "$ini" >out
shows "the previous run ended cleanly"

status=0
"$host" --crash "$ini" >out 2>err || status=$?
[ "$status" -eq $((128 + 9)) ] || fail "--crash: exit status $status"
shows "the previous run ended cleanly"
! grep -q '^stop:' out || fail "a crash runs no callbacks"

# Neither another program nor a run that fails to start hides the crash.
ln -s "$host" Player
./Player "$ini" >out
shows "this is the first run"
refuses "a missing file once more" missing.ini "not there"
for expected in "did NOT end cleanly" "ended cleanly"; do
    "$host" "$ini" >out
    shows "the previous run $expected"
done
