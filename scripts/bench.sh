#!/usr/bin/env bash
# Builds the release preset, measures it and prints the ratios to the references; fails when one exceeds its budget.
# Arguments go to the benchmark program, for example: scripts/bench.sh --benchmark_filter=FileDictionaries
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset release --log-level=WARNING
cmake --build --preset release --target kelvane-bench
build/release/Bench/kelvane-bench --benchmark_repetitions=3 \
    --benchmark_out=build/release/bench.json --benchmark_out_format=json "$@"
