# Completion of quorvel-surface for bash.

_quorvel_surface() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=''
    COMPREPLY=()
    # An option's value may stand behind a "=" that bash takes for a word.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    --backend) words='auto jack alsa embedded' ;;
    --protocol) words='auto mackie hui' ;;
    --port) words=$(seq 1 32) ;;
    --size) words='80x24 132x43' ;;
    --play | --snapshot)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --speed | --at) return ;;
    *)
        words='--help --version --backend --port --protocol --play --speed --as-fast-as-possible'
        words+=' --at --log --snapshot --size'
        ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _quorvel_surface quorvel-surface
