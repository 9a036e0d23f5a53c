#!/usr/bin/env bash
# GdbPrintersTest.sh PROGRAM LIBRARY: gdb loads the printers by itself with the library and
# prints the program's values. 77 means skipped.
set -euo pipefail
program=$1 library=$(readlink -f "$2")
command -v gdb >/dev/null || { echo "skipped: gdb is not installed"; exit 77; }
[ -f "$library-gdb.py" ] || { echo "no printers beside $library"; exit 1; }
# Nothing of the user's own settings; text as a UTF-8 terminal gets it; addresses as always.
LC_ALL=C.UTF-8 exec gdb -nx --batch -iex "set auto-load safe-path $(dirname "$library")" \
    -ex "set disable-randomization off" -x "$(dirname "$0")/GdbPrintersTest.gdb.py" "$program"
