#!/usr/bin/env bash
# LiteralsTest.sh SOURCE: every operator of strings with literals of 0 to 9 characters compiles
# without a warning, at every optimisation level and in every standard that we support.
set -euo pipefail
ole=$1/ole
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# A function for each operator and literal: warnings depend on what the optimiser knows there.
operators() # CHARACTER LITERAL
{
    local string="LightweightString<$1>" n=0 body
    for body in 'return a == %' 'return % != a' 'return a < %' 'return % <= a' 'return % + a >= b' \
        'a = %; return a > b' 'a += %; a += %; return a == b' 'a.append(%, 1); return a == %' \
        'a.resizeFor(3) += %; return a == b' "return $string(%) + % == % + $string(%)" \
        "return $string(%).length() == 3" "return a == std::basic_string<$1>(%)" \
        "a += std::basic_string<$1>(%); return std::basic_string_view<$1>(%) < a"; do
        echo "bool f$((n += 1))_$id($string& a, const $string& b) { ${body//%/$2}; }"
    done
}

{
    echo '#include <Vx/LightweightString.h>'
    echo '#include <string>'
    id=0
    for ((length = 0; length < 10; ++length)); do
        chars=$(printf '%.*s' $length ' (abcdefg')
        id=$((id + 1)) && operators char "\"$chars\""
        id=$((id + 1)) && operators wchar_t "L\"$chars\""
    done
} >"$scratch/literals.cpp"

compiles() # COMPILER STANDARD LEVEL
{
    "$1" -std=c++"$2" "$3" -Wall -Wextra -Wconversion -Wno-unused-parameter -Werror -I"$ole" -c "$scratch/literals.cpp" \
        -o /dev/null || { echo "FAILED: $*"; return 1; }
}
export -f compiles
export ole scratch
printf '%s\n' 'g++ 17 -O0' 'g++ 20 -O1' 'g++ 17 -O2' 'g++ 2b -O3' 'g++ 20 -Os' \
    'clang++ 17 -O3' 'clang++ 2b -O0' |
    while read -r compiler rest; do
        ! command -v "$compiler" >/dev/null || echo "$compiler $rest"
    done | xargs -P 2 -L 1 bash -c 'compiles "$@"' compiles
echo "$(grep -c '^bool' "$scratch/literals.cpp") functions"
