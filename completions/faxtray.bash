# Completion of faxtray's command line in bash, loaded by bash-completion. What may follow is faxtray's to say; where it
# is a file, that fails, and bash completes names of files.
_faxtray() {
    local found line
    COMPREPLY=()
    found=$("$1" --complete "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null) || return 0
    compopt +o default
    while IFS= read -r line; do
        [ -z "$line" ] || COMPREPLY+=("$line")
    done <<<"$found"
}
complete -o default -F _faxtray faxtray
