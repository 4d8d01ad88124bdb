#!/usr/bin/env bash
# Installs missing packages, builds, and runs all tests. Passes its arguments to ctest, for example: ./test.sh -R Socket
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
cmake --preset dev --log-level=WARNING
cmake --build --preset dev
ctest --preset dev "$@"
