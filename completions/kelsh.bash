# bash completion for kelsh
_kelsh() {
    local current=${COMP_WORDS[COMP_CWORD]} candidates
    candidates=$("${KELSH_COMPLETE:-/usr/lib/kelsh/kelsh-complete}" \
        "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null)
    COMPREPLY=()
    if [[ $candidates == @files ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
    fi
    local candidate
    while IFS= read -r candidate; do
        # By hand and not with compgen: nothing in a name may be expanded.
        [[ -z $candidate || ${candidate:0:${#current}} != "$current" ]] || COMPREPLY+=("$candidate")
    done <<<"$candidates"
    # Another node or group may follow behind a comma.
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        -n | --node | -g | --group) compopt -o nospace 2>/dev/null ;;
    esac
}
complete -F _kelsh kelsh
