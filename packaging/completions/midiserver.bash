# Completion of midiserver for bash. The ports' names come from the service that runs.

_midiserver_ports() {
    local count
    count=$(midiserver list 2>/dev/null | grep -c '^Quorvel Port [0-9]') || return
    seq 1 "$count"
}

_midiserver() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]-} options='' words=''
    local -r log='--log-level --log-category --log-format'
    COMPREPLY=()
    [[ $COMP_CWORD -eq 1 ]] && command=
    if [[ $command == prefs && $COMP_CWORD -gt 2 ]]; then
        command="prefs ${COMP_WORDS[2]}"
    fi

    # An option's value, which may stand behind a "=" that bash takes for a word.
    if [[ $current == = ]]; then
        current=
    elif [[ $previous == = ]]; then
        previous=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    case $previous in
    --backend) words='auto jack alsa embedded' ;;
    --log-level) words='ultra-verbose verbose chatty info warning error catastrophy none' ;;
    --log-category) words='Host PlugIn Replay Preferences Routing Service Connections ALSA JACK' ;;
    --log-format) words='plain json journal' ;;
    --protocol) words='HUI MackieControl' ;;
    --ports) words='1-4 5-8 9-12 13-16 17-20 21-24 25-28 29-32' ;;
    --coalesce) words=all ;;
    --port) words=$(seq 1 32) ;;
    --to) words=$(_midiserver_ports) ;;
    --plugin | --prefs)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -d -- "$current")
        return
        ;;
    --setup)
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
        ;;
    --speed) return ;;
    esac
    if [[ -n $words ]]; then
        mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
        return
    fi

    case $command in
    '')
        words='run status list connect disconnect record replay prefs'
        options='--help --version'
        ;;
    run) options="--help --backend --plugin --prefs --setup --coalesce $log" ;;
    status) options='--help --json --watch' ;;
    list) options='--help --json' ;;
    connect | disconnect)
        options='--help'
        [[ $previous == "$command" ]] && words=$(_midiserver_ports)
        ;;
    record)
        options='--help'
        [[ $previous == record ]] && words=$(_midiserver_ports)
        ;;
    replay)
        options="--help --to --port --speed --as-fast-as-possible --prefs --plugin --setup --json $log"
        ;;
    prefs)
        words='show set clear'
        options='--help'
        ;;
    'prefs show') options='--help --prefs --json' ;;
    'prefs set') options='--help --prefs --ports --protocol --force' ;;
    'prefs clear') options='--help --prefs' ;;
    *) return ;;
    esac
    if [[ $current == -* ]]; then
        words=$options
    elif [[ $command == replay || ($command == record && -z $words) ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
        return
    fi
    mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _midiserver midiserver
