#!/usr/bin/env bash
# Installs what is missing, builds, and runs every test. Arguments go to ctest, for example: ./test.sh -R Socket
set -euo pipefail
cd "$(dirname "$0")"

scripts/setup.sh
cmake --preset dev --log-level=WARNING
cmake --build --preset dev
ctest --preset dev "$@"
