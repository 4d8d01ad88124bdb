#!/usr/bin/env bash
# Installs what is missing, builds, starts the local daemon on a folder and opens the window.
#
#   ./run.sh [--home DIR] [--for SECONDS]         the daemon and the window; DIR is your home folder unless you say else
#   ./run.sh watch [--home DIR] [--for SECONDS]   the daemon and its live state in this terminal
#   ./run.sh daemon [--home DIR]                  the daemon alone, to start it again after it was killed
#
# Without a display there are pictures of the window, and then the live state in this terminal.
set -euo pipefail
cd "$(dirname "$0")"

usage() { sed -n '2,8s/^# \{0,1\}//p' "$0"; }

mode=window
home=$HOME
seconds=
while [ $# -gt 0 ]; do
    case $1 in
        watch|daemon) mode=$1; shift ;;
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
cmake --build --preset release
bin=build/release
daemon=$bin/LocalDaemon/kelvane-local-daemon
ctl=$bin/Tools/kelvanectl
pictures=$PWD/build/screenshots

# For at most the time given; a program that is ended so has done its work.
limited() {
    if [ -n "$seconds" ]; then
        timeout --foreground --signal=INT "$seconds" "$@" || [ $? -eq 124 ]
    else
        "$@"
    fi
}

take_pictures() {
    local screen
    mkdir -p "$pictures"
    # A display that is free, told by the server itself.
    exec {number}< <(exec Xvfb -displayfd 1 -screen 0 1280x960x24 -nolisten tcp 2>/dev/null)
    screen=$!
    read -r -u "$number" display
    DISPLAY=":$display" $bin/kelvane-settings --pane $bin/Bundles/Kelvane.prefPane --screenshot "$pictures" || true
    kill "$screen" 2>/dev/null || true
}

if [ "$mode" = daemon ]; then
    echo "The local daemon serves $home until you press Ctrl-C."
    exec "$daemon" --home "$home"
fi

"$daemon" --home "$home" &
pid=$!
trap 'kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true' EXIT
"$ctl" --timeout 10 status

cat <<END

The local daemon (process $pid) is scanning $home.
In another terminal, kill it and start it again, and watch the link come back:
    kill -9 $pid
    ./run.sh daemon

END
if [ "$mode" = window ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    limited $bin/kelvane-settings --pane $bin/Bundles/Kelvane.prefPane
    exit
fi
if [ "$mode" = window ]; then
    echo "There is no display here. The window was opened on a virtual one; these are its pictures:"
    take_pictures
fi
echo "What the daemon says appears below as it happens. Ctrl-C ends this."
limited "$ctl" watch
