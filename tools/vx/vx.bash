# Bash completion for vx. Sections and keys come from the file on the command line.

# _vx_ini_words FILE [SECTION]: prints the sections of FILE, or the keys of SECTION, one per line.
# The case of section names counts only if $exact is 1. Each section is printed once.
_vx_ini_words()
{
    local file=$1 section=${2-}
    [ -r "$file" ] || return
    # Like vx, keep the blanks inside the brackets.
    awk -v wanted="$section" -v all="$#" -v exact="$exact" '
        function plain(text) { return exact ? text : tolower(text) }
        { sub(/[[:space:]]+$/, ""); sub(/^ +/, "") }
        /^\[.*\]$/ { name = substr($0, 2, length($0) - 2); 
            if (all == 1 && !seen[plain(name)]++) print name
            next }
        all == 2 && !/^[;#]/ && /=/ && (plain(name) == plain(wanted) || (wanted == "-" && name == "")) {
            print substr($0, 1, index($0, "=") - 1) }' "$file" 2>/dev/null
}

# Offers the lines of standard input that start with the current word; "section" as argument:
# sections, whose case may not count.
_vx_offer()
{
    local line lower=0
    COMPREPLY=()
    [[ ${1-} == section && $exact == 0 ]] && lower=1
    while IFS= read -r line; do
        if [[ $line == "$cur"* ]] || { [[ $lower == 1 ]] && [[ ${line,,} == "${cur,,}"* ]]; }; then
            COMPREPLY+=("$(printf '%q' "$line")")
        fi
    done
}

_vx()
{
    local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local words=() word i exact=0
    COMPREPLY=()
    # The words before the current one, without options and their values.
    for ((i = 1; i < COMP_CWORD; i++)); do
        word=${COMP_WORDS[i]}
        case $word in
            --color | --pool | --output | --count | --explain | --core) ((i++)) ;;
            -o) ((i++)) ;;
            -n) [[ ${words[0]-} == uuid ]] && ((i++)) ;;
            -c | --case-sensitive) exact=1 ;;
            -) words+=("$word") ;;
            -*) ;;
            *) words+=("$word") ;;
        esac
    done
    case $previous in
        --color)
            mapfile -t COMPREPLY < <(compgen -W "auto always never" -- "$cur")
            return ;;
        -o | --output | --core)
            mapfile -t COMPREPLY < <(compgen -f -- "$cur")
            return ;;
        --sysroot)
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            return ;;
        --explain) return ;;
        --pool | -n | --count)
            [[ ${words[0]-} == ini ]] || return ;;
    esac
    if [[ $cur == -* ]]; then
        local options="--help"
        case "${words[0]-} ${words[1]-}" in
            " ") options+=" --version --color" ;;
            "ini check") options+=" --explain --for-programmers --case-sensitive --json" ;;
            "ini show" | "ini diff") options+=" --case-sensitive --json" ;;
            "ini get") options+=" --all --case-sensitive --json" ;;
            "ini set") options+=" --create --dry-run --case-sensitive" ;;
            "ini unset" | "ini merge") options+=" --dry-run --case-sensitive" ;;
            "settings set") options+=" --create" ;;
            "ini fmt") options+=" --check --dry-run" ;;
            "uuid " | "uuid new") options+=" --count --json" ;;
            "uuid show" | "meta "* | "settings " | "settings show" | "settings get" | "version "*) options+=" --json" ;;
            "fcc "*) options+=" --code --json" ;;
            "inspect "*) options+=" --core --sysroot --watch --stacks --json" ;;
            "pools "*) options+=" --pool --plot --output --json" ;;
        esac
        mapfile -t COMPREPLY < <(compgen -W "$options" -- "$cur")
        return
    fi
    case ${#words[@]}:${words[0]-}:${words[1]-} in
        0:*) mapfile -t COMPREPLY < <(compgen -W "ini uuid fcc meta pools settings inspect version" -- "$cur") ;;
        1:ini:*) mapfile -t COMPREPLY < <(
            compgen -W "show get set unset check diff merge fmt" -- "$cur") ;;
        1:inspect:* | 2:inspect:*) mapfile -t COMPREPLY < <(
            # Sections come first; processes by identifier, from what /proc shows.
            sections="deadlocks locks application shutdown names pools memory threads"
            [[ ${#words[@]} == 1 ]] || sections=
            compgen -W "$sections $(vx inspect 2>/dev/null | awk 'NR > 1 { print $1 }')" -- "$cur") ;;
        1:settings:*) mapfile -t COMPREPLY < <(compgen -W "show get set" -- "$cur") ;;
        1:uuid:*) mapfile -t COMPREPLY < <(compgen -W "new show" -- "$cur") ;;
        2:ini:* | 1:pools:* | 3:ini:diff | [34]:ini:merge)
            compopt -o filenames 2>/dev/null
            mapfile -t COMPREPLY < <(compgen -f -- "$cur") ;;
        3:ini:show | 3:ini:get | 3:ini:set | 3:ini:unset)
            _vx_offer section < <(_vx_ini_words "${words[2]}" | sort) ;;
        4:ini:get | 4:ini:set | 4:ini:unset)
            _vx_offer < <(_vx_ini_words "${words[2]}" "${words[3]}" | sort -u) ;;
    esac
}

complete -F _vx vx
