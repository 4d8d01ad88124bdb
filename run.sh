#!/usr/bin/env bash
# Installs what is missing, builds, starts the local daemon on a folder and shows its live state.
#
#   ./run.sh [--home DIR] [--for SECONDS]   the daemon and the live state; DIR is your home folder unless you say else
#   ./run.sh daemon [--home DIR]            the daemon alone, to start it again after it was killed
set -euo pipefail
cd "$(dirname "$0")"

usage() { sed -n '2,6s/^# \{0,1\}//p' "$0"; }

daemon_only=no
home=$HOME
seconds=
while [ $# -gt 0 ]; do
    case $1 in
        daemon) daemon_only=yes; shift ;;
        --home) home=${2:?--home needs a folder}; shift 2 ;;
        --for) seconds=${2:?--for needs a number of seconds}; shift 2 ;;
        --help|-h) usage; exit 0 ;;
        *) echo "run.sh: unknown argument: $1" >&2; usage >&2; exit 2 ;;
    esac
done
if [ ! -d "$home" ]; then
    echo "run.sh: no such folder: $home" >&2
    exit 2
fi

scripts/setup.sh
cmake --preset release --log-level=WARNING
cmake --build --preset release --target kelvane-local-daemon kelvanectl
bin=build/release
daemon=$bin/LocalDaemon/kelvane-local-daemon
ctl=$bin/Tools/kelvanectl

if [ "$daemon_only" = yes ]; then
    echo "The local daemon serves $home until you press Ctrl-C."
    exec "$daemon" --home "$home"
fi

"$daemon" --home "$home" &
pid=$!
trap 'kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true' EXIT

"$ctl" --timeout 10 status
cat <<EOF

The local daemon (process $pid) is scanning $home. What it says appears below as it happens.
In another terminal, kill it and start it again, and watch the link come back:
    kill -9 $pid
    ./run.sh daemon
Ctrl-C ends this.

EOF
if [ -n "$seconds" ]; then
    timeout --foreground --signal=INT "$seconds" "$ctl" watch || [ $? -eq 124 ]
else
    "$ctl" watch
fi
