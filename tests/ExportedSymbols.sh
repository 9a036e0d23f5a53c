#!/usr/bin/env bash
# ExportedSymbols.sh LIBRARY MAP: checks that the library exports exactly what its map lists.
set -euo pipefail
library=$1 map=$2
export LC_ALL=C

named=$(grep -oP '^\s+"\K.*(?=";$)' "$map" | sort)
repeated=$(uniq -d <<<"$named")
exported=$(nm -DC --defined-only "$library" | grep -vE ' A VX' | cut -c20- | sed 's/@@.*//' | sort -u)

difference=$(diff <(sort -u <<<"$named") - <<<"$exported" || true)
[ -z "$repeated" ] || { printf 'named twice:\n%s\n' "$repeated"; exit 1; }
[ -z "$difference" ] || {
    printf '< named in the map but not exported, > exported but not named:\n%s\n' "$difference"
    exit 1
}
echo "$(wc -l <<<"$exported") exported names"
