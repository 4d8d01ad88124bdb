#!/usr/bin/env bash
# Checks that need no build: formatting, includes from outside the module, sizes of files.
set -euo pipefail
cd "$(dirname "$0")/.."

mapfile -t sources < <(git ls-files -co --exclude-standard -- '*.cpp' '*.h' | while read -r file; do
    [ -f "$file" ] && echo "$file"; done)
failed=0

if ! clang-format --dry-run --Werror "${sources[@]}"; then
    echo "Run: clang-format -i on the files above." >&2
    failed=1
fi
if grep -nE '#include "(\.\./|[^/"]+")' "${sources[@]}"; then
    echo "An include names its module and file, and never a relative path." >&2
    failed=1
fi
if wc -l "${sources[@]}" | awk '$2 != "total" && $1 > 400 { print; found = 1 } END { exit !found }'; then
    echo "A file of more than 400 lines holds two things: part them." >&2
    failed=1
fi
if grep -nE 'sleep_for|usleep\(|nanosleep|[^a-z_]sleep\(' $(git ls-files -co --exclude-standard -- 'Tests/*.cpp' 'Tests/*.h'); then
    echo "A test waits for an event or moves the clock; it does not sleep." >&2
    failed=1
fi
if grep -nE 'std::ranges::(partition|stable_partition|unique|remove|remove_if|rotate|search|subrange)\b|std::views::' "${sources[@]}"; then
    echo "Debian 12's clang does not compile this; the older algorithms it does." >&2
    failed=1
fi
exit "$failed"
