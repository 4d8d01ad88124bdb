# Completion of kelvanectl for fish. kelvanectl itself finds the candidates.

function __kelvanectl_complete
    set -l tokens (commandline -opc)
    $tokens[1] complete -- (commandline -cp | string collect) 2>/dev/null
end

complete -c kelvanectl -f -a '(__kelvanectl_complete)'
