#!/usr/bin/env bash
# CoreFileTest.sh PROGRAM LIBRARY FORMATTERS: gdb and lldb show the last values of
# GdbPrintersTest.cpp from a core file. Exits with 77 if a debugger is missing
# or too old.
set -euo pipefail
program=$1 library=$(readlink -f "$2") formatters=$3
for debugger in gdb lldb; do
    command -v $debugger >/dev/null || { echo "skipped: $debugger is not installed"; exit 77; }
done
version=$(lldb --version | sed -n 's/.*version \([0-9]*\).*/\1/p' | head -1)
[ "$version" -ge 14 ] || { echo "skipped: lldb $version is too old"; exit 77; }
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
export LC_ALL=C.UTF-8
gdb=(gdb -nx --batch -iex "set auto-load safe-path $(dirname "$library")")
"${gdb[@]}" -ex "set disable-randomization off" -ex "break lookHere" -ex "ignore 1 8" -ex run \
    -ex "generate-core-file $scratch/core" -ex kill "$program" >"$scratch/made" 2>&1

"${gdb[@]}" -ex up -ex "print runtime" "$program" "$scratch/core" >"$scratch/gdb" 2>&1
# Debian's lldb 14 does not find its own module, and searches PATH for its Python.
PATH=/usr/bin:/bin PYTHONPATH=$(printf '%s:' /usr/lib/llvm-*/lib/python3.*/dist-packages) \
    lldb --no-lldbinit --batch -o "command script import $formatters" \
    -o "target create --core $scratch/core $program" -o "frame select 1" \
    -o "frame variable runtime" >"$scratch/lldb" 2>&1
for debugger in gdb lldb; do
    grep -F 'Vx::Exception::RuntimeError "out of frames" at ole/Vx/Example(7), 2 frames' \
        "$scratch/$debugger" && continue
    echo "FAILED: $debugger"
    cat "$scratch/made" "$scratch/$debugger"
    exit 1
done
