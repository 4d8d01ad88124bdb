#!/usr/bin/env bash
# Runs clang-tidy with the configuration in .clang-tidy.
#
#   scripts/tidy.sh              all sources, which takes an hour on two cores
#   scripts/tidy.sh FILE...      these
#   scripts/tidy.sh --touched    at most 20 of those that the change touches (see touched-sources.py), and none after
#                                200 s; this is what CI runs
set -euo pipefail
cd "$(dirname "$0")/.."

deadline=$((EPOCHSECONDS + 1000000))
if [ "${1:-}" = --touched ]; then
    if ! git rev-parse -q --verify HEAD >/dev/null; then
        echo "clang-tidy did NOT run: the changed files are unknown without git."
        exit 0
    fi
    deadline=$((EPOCHSECONDS + 200))
    selection=$(scripts/touched-sources.py 20)
elif [ $# -gt 0 ]; then
    selection=$(printf '%s\n' "$@")
else
    selection=$(git ls-files -- '*.cpp')
fi
if [ -z "$selection" ]; then
    echo "clang-tidy: no source files to check."
    exit 0
fi

# Only configures: of the generated files, sources include only those of moc and uic. These are called directly with the
# build's commands, since the build's own targets for them would build all libraries first.
cmake --preset tidy --log-level=WARNING >/dev/null
find build/tidy -name AutogenInfo.json -exec cmake -E cmake_autogen {} Debug \;
if grep -q '^Fuzz/' <<<"$selection"; then
    cmake --preset fuzz --log-level=WARNING >/dev/null
fi

check_source() {
    local tree=build/tidy
    if [ "$EPOCHSECONDS" -ge "$deadline" ]; then
        echo "Time limit reached; $1 was not checked."
        return
    fi
    if [[ $1 == Fuzz/* ]]; then
        tree=build/fuzz
    fi
    local findings
    if ! findings=$(clang-tidy --quiet -p "$tree" "$1" 2>&1); then
        printf '%s\n' "$findings"
        return 1
    fi
    echo "$1: nothing found"
}
export -f check_source
export deadline
xargs -P "$(nproc)" -I FILE bash -c 'check_source "$1"' _ FILE <<<"$selection"
