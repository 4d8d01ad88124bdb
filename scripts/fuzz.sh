#!/usr/bin/env bash
# Builds the fuzz targets and runs each for a number of seconds (default: 60) on a copy of its
# seeds. Findings are left in build/fuzz/findings and make the script fail.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-60}

cmake --preset fuzz --log-level=WARNING
cmake --build --preset fuzz
corpus=$(mktemp -d)
trap 'rm -rf "$corpus"' EXIT
findings=$PWD/build/fuzz/findings
mkdir -p "$findings"
for fuzzer in build/fuzz/Fuzz/*_fuzzer; do
    name=$(basename "$fuzzer" _fuzzer)
    mkdir "$corpus/$name"
    cp Fuzz/corpus/"$name"/* "$corpus/$name"
    echo "fuzzing $name for $seconds s"
    "$fuzzer" -max_total_time="$seconds" -max_len=65536 -rss_limit_mb=2048 -timeout=10 -print_final_stats=1 \
        -verbosity=0 -artifact_prefix="$findings/$name-" "$corpus/$name"
done
