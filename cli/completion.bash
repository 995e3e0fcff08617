# Completion of the analytics command for bash.
_analytics() {
    local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word=${COMP_WORDS[1]}
    local keys="os_name os_ver mfg model arch cpu cpu_clock cpu_usage ram_total ram_free vm_total vm_free hd_total hd_free
        bios uuid tz"
    local options words=""
    COMPREPLY=()
    if [ "$COMP_CWORD" -eq 1 ]; then
        COMPREPLY=($(compgen -W "log show send properties --help --version" -- "$current"))
        return
    fi
    case $previous in
    --file | --id-file | --certificates)
        COMPREPLY=($(compgen -f -- "$current"))
        return
        ;;
    --property)
        COMPREPLY=($(compgen -W "$keys" -- "$current"))
        return
        ;;
    esac
    case $word in
    log) options="--file --id-file --app --app-version --property --help" ;;
    show) options="--json --wide --help" ;;
    send) options="--url --id --app-version --certificates --keep --help" ;;
    properties) options="--json --help" words=$keys ;;
    esac
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$options" -- "$current"))
    elif [ -n "$words" ]; then
        COMPREPLY=($(compgen -W "$words" -- "$current"))
    elif [ "$word" != log ]; then
        COMPREPLY=($(compgen -f -- "$current"))
    fi
}
complete -F _analytics -o filenames analytics
