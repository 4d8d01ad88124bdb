#!/usr/bin/env bash
# clang-tidy over the sources, or over the files given. Takes several minutes; CI does not wait for it.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset asan --log-level=WARNING >/dev/null
if [ $# -eq 0 ]; then
    mapfile -t files < <(git ls-files -- '*.cpp' ':!Fuzz/*')
    set -- "${files[@]}"
fi
printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/asan
