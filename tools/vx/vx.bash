# Bash completion for vx, which itself says what fits.
_vx()
{
    local offered IFS=$'\n'
    COMPREPLY=()
    offered=$("${1/#~\//$HOME/}" __complete bash "${COMP_LINE:0:COMP_POINT}" 2>/dev/null)
    case $? in
        0) [[ -z $offered ]] || mapfile -t COMPREPLY <<<"$offered" ;;
        100) compopt -o default ;;
        101) compopt -o dirnames ;;
    esac
}
complete -F _vx vx
