# Completions of kpe for bash.

_kpe() {
    local word=${COMP_WORDS[COMP_CWORD]} forms
    COMPREPLY=()
    case ${COMP_WORDS[0]##*/} in
        kpe) forms="-d -nocommand -readonly -recover --help --version -stop -quiet -command= -output= -journal=" ;;
        kpe-editor) forms="-R --help --version" ;;
        kpe-recover) forms="--write= --edit --at= --buffer= --discard --purge --help --version" ;;
        kpe-keys) forms="--help --version" ;;
    esac
    # All else are files, which bash completes and quotes itself.
    [[ $word == -* ]] || return 0
    mapfile -t COMPREPLY < <(compgen -W "$forms" -- "$word")
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; fi
}
complete -o default -F _kpe kpe
complete -o default -F _kpe kpe-editor
complete -o default -F _kpe kpe-recover
complete -F _kpe kpe-keys
