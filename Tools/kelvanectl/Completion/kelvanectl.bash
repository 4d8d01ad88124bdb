# Completion of kelvanectl for bash. kelvanectl itself finds the candidates.

_kelvanectl() {
    local line word
    COMPREPLY=()
    while IFS= read -r line; do
        word=${line%%$'\t'*}
        COMPREPLY+=("$word")
    done < <("${COMP_WORDS[0]}" complete --breaks "${COMP_WORDBREAKS//[^:=]/}" -- "${COMP_LINE:0:COMP_POINT}" 2>/dev/null)
    # Readline quotes special characters and adds no space after a folder.
    compopt -o filenames
    if [[ ${#COMPREPLY[@]} -eq 1 && ${COMPREPLY[0]} == */ ]]; then
        compopt -o nospace
    fi
}

complete -F _kelvanectl kelvanectl
