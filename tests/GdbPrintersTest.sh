#!/usr/bin/env bash
# GdbPrintersTest.sh PROGRAM LIBRARY: gdb loads the printers automatically with the library, and
# prints the program's values. Exits with 77 if there is no gdb.
set -euo pipefail
program=$1 library=$(readlink -f "$2")
command -v gdb >/dev/null || { echo "skipped: gdb is not installed"; exit 77; }
[ -f "$library-gdb.py" ] || { echo "no printers beside $library"; exit 1; }
# Without the user's own settings, in a UTF-8 locale, and with randomized addresses: containers
# may not turn that off.
LC_ALL=C.UTF-8 exec gdb -nx --batch -iex "set auto-load safe-path $(dirname "$library")" \
    -ex "set disable-randomization off" -x "$(dirname "$0")/GdbPrintersTest.gdb.py" "$program"
