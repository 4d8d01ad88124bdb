#!/usr/bin/env bash
# Runs exactly what CI runs.
exec "$(dirname "$0")/../.ci/run"
