# bash completion for kelnodes
_kelnodes() {
    local current=${COMP_WORDS[COMP_CWORD]}
    if [[ ${COMP_WORDS[COMP_CWORD - 1]} == --config ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    elif ((COMP_CWORD == 1)); then
        mapfile -t COMPREPLY < <(compgen -W 'fold expand count --help --version' -- "$current")
    else
        mapfile -t COMPREPLY < <(compgen -W '--config' -- "$current")
    fi
}
complete -F _kelnodes kelnodes
