# Completion of the analytics command for bash.
_analytics() {
    local current=$2 previous=$3 word=${COMP_WORDS[1]} choices="" files=""
    local keys="os_name os_ver mfg model arch cpu cpu_clock cpu_usage ram_total ram_free vm_total vm_free hd_total hd_free
        bios uuid tz system system_version kernel machine processors memory_bytes memory_available_bytes disk_bytes
        disk_free_bytes locale time_zone desktop display virtualized boot_seconds"
    case $COMP_CWORD:$word:$previous in
    1:*) choices="log show send forget properties help --help --version" ;;
    *:--file | *:--id-file | *:--certificates) files=yes ;;
    *:--property) choices=$keys ;;
    *:--url | *:--id | *:--app | *:--app-version) ;;
    *:log:*) choices="--file --id-file --app --app-version --property --help" ;;
    *:show:*) choices="--json --wide --help" files=yes ;;
    *:send:*) choices="--url --id --app-version --certificates --keep --batches --wait --help" files=yes ;;
    *:forget:*) choices="--id-file --help" files=yes ;;
    *:help:*) choices="log show send forget properties" ;;
    *:properties:*) choices="$keys --json --help" ;;
    esac
    # Options only after "-": behind "show" and "send" a file is more likely.
    [[ $current == -* ]] || [ -z "$files" ] || choices=""
    mapfile -t COMPREPLY < <(compgen -W "$choices" -- "$current")
    if [ -n "$files" ] && [[ $current != -* ]]; then
        compopt -o filenames 2>/dev/null
        mapfile -t COMPREPLY < <(compgen -f -- "$current")
    fi
}
complete -F _analytics analytics
