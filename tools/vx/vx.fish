# Fish completion for vx, which itself says what fits.
function __vx_complete
    set -l words (commandline -opc)
    set -l program (string replace -r '^~/' "$HOME/" -- $words[1])
    set -e words[1]
    # fish looks for what was typed itself; vx needs to know only whether that is an option.
    set -l typed (commandline -ct)
    string match -q -- '-*' $typed; or set typed ''
    $program __complete plain $words $typed 2>/dev/null
    set -l kind $status
    test $kind -ne 101; or __fish_complete_directories (commandline -ct)
    return $kind
end

function __vx_wants_files
    __vx_complete >/dev/null
    test $status -eq 100
end

complete -c vx -f -a '(__vx_complete)'
complete -c vx -n __vx_wants_files -F
