#!/usr/bin/env bash
# SanitizersTest.sh PAGE HEADERS LIBRARY...: builds the program of docs/sanitizers.md on the
# libraries as they are released. Each tool must report each of its faults, and nothing otherwise.
set -euo pipefail
page=$1 headers=$2
shift 2
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
awk '/^```cpp/ { on = 1; next } /^```/ { on = 0 } on' "$page" >"$scratch/host.cpp"
folders=()
for library in "$@"; do folders+=("-Wl,-rpath,$(dirname "$library")"); done
cd "$scratch"

# expect TEXT COMMAND...: the command prints TEXT and fails, or prints nothing if TEXT is empty.
expect()
{
    local text=$1 status=0
    shift
    "$@" >out 2>&1 || status=$?
    if [ -z "$text" ]; then
        [ "$status" -eq 0 ] && [ ! -s out ] && return
    else
        [ "$status" -ne 0 ] && grep -qF -- "$text" out && return
    fi
    echo "FAILED: $compiler $options: $*: exit status $status, expected '$text':"
    cat out
    exit 1
}

tested=0
for compiler in g++ clang++; do
    # Some distributions package the runtimes of clang++ separately.
    echo 'int main() {}' | $compiler -fsanitize=thread -x c++ - -o host >out 2>&1 || {
        echo "$compiler: not installed, or without sanitizers"
        continue
    }
    for options in '-O0 -fsanitize=thread' '-O2 -fsanitize=thread' '-O1 -fsanitize=address' '-O1'; do
        # shellcheck disable=SC2086
        $compiler -std=c++17 -gdwarf-4 $options host.cpp -o host "-I$headers" "$@" -pthread \
            "${folders[@]}"
        case $options in
            *thread)
                expect '' ./host
                expect 'ThreadSanitizer: data race' ./host race ;;
            *address)
                expect '' ./host
                expect 'AddressSanitizer: heap-use-after-free' ./host use
                expect 'LeakSanitizer: detected memory leaks' ./host leak ;;
            *)
                command -v valgrind >/dev/null || continue
                checked=(valgrind --quiet --leak-check=full --error-exitcode=9)
                expect '' "${checked[@]}" ./host
                expect 'Invalid read of size 1' "${checked[@]}" ./host use
                expect 'definitely lost' "${checked[@]}" ./host leak ;;
        esac
        tested=$((tested + 1))
    done
done
[ $tested -ne 0 ] && echo "$tested builds report their faults and nothing else"
