#compdef vx
# Zsh completion for vx, which itself says what fits.
_vx()
{
    local offered line
    local -a described
    offered=$("${(Q)words[1]/#\~\//$HOME/}" __complete plain \
        "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)
    case $? in
        0)
            for line in ${(f)offered}; do
                described+=("${${${line%%$'\t'*}//\\/\\\\}//:/\\:}:${line#*$'\t'}")
            done
            _describe -V argument described -M 'm:{a-zA-Z}={A-Za-z}' ;;
        100) compset -P '--*='; _files ;;
        101) compset -P '--*='; _files -/ ;;
    esac
}
_vx "$@"
