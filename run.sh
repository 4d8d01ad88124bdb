#!/usr/bin/env bash
# Installs missing packages, builds, starts the local daemon and opens the window.
#
#   ./run.sh [--home [DIR]] [--for SECONDS]         the daemon and the window
#   ./run.sh watch [--home [DIR]] [--for SECONDS]   the daemon and its live state in this terminal
#   ./run.sh daemon [--home [DIR]]                  the daemon alone, to start it again after it was killed
#
# It backs up a small sample home below build/sample. With --home it is your own home folder, or DIR.
# Without a display it takes screenshots of the window, and then shows the live state in this terminal.
set -euo pipefail
cd "$(dirname "$0")"

usage() { sed -n '2,9s/^# \{0,1\}//p' "$0"; }

mode=window
home=
seconds=
while [ $# -gt 0 ]; do
    case $1 in
        watch|daemon) mode=$1; shift ;;
        --home)
            home=$HOME; shift
            case ${1:-} in ''|-*|watch|daemon) ;; *) home=$1; shift ;; esac ;;
        --for) seconds=${2:?--for needs a number of seconds}; shift 2 ;;
        --help|-h) usage; exit 0 ;;
        *) echo "run.sh: unknown argument: $1" >&2; usage >&2; exit 2 ;;
    esac
done

scripts/setup.sh
cmake --preset release --log-level=WARNING
cmake --build --preset release --target kelvane-settings kelvane_pane_kelvane_bundle kelvane_pane_about_bundle \
    kelvane-local-daemon kelvanectl
bin=build/release
ctl=$bin/Tools/kelvanectl
pictures=$PWD/build/screenshots

daemon=($bin/LocalDaemon/kelvane-local-daemon)
window=($bin/kelvane-settings --pane $bin/Bundles/Kelvane.prefPane)
if [ -z "$home" ]; then
    # The demo has its own socket, settings, repository, key and log, and needs no password, since its data is generated.
    # A daemon that the user is already running is not affected.
    sample=$PWD/build/sample
    home=$sample/home
    scripts/make-sample-home.py "$home"
    export KELVANE_DAEMON=$sample/daemon.sock
    own=(env XDG_CONFIG_HOME="$sample/config" XDG_STATE_HOME="$sample/state" XDG_DATA_HOME="$sample/data"
         XDG_CACHE_HOME="$sample/cache")
    daemon=("${own[@]}" "${daemon[@]}" --socket "$KELVANE_DAEMON" --log "$sample/daemon.log")
    window=("${own[@]}" "${window[@]}" --daemon "$KELVANE_DAEMON" --log "$sample/daemon.log" --authorization granted)
elif [ ! -d "$home" ]; then
    echo "run.sh: no such folder: $home" >&2
    exit 2
fi
daemon+=(--home "$home")

# Runs a program for at most the given time. Exceeding it is not a failure: 124 is the status of timeout.
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
    # With -displayfd, Xvfb picks a free display and writes its number to that descriptor.
    exec {number}< <(exec Xvfb -displayfd 1 -screen 0 1280x960x24 -nolisten tcp 2>/dev/null)
    screen=$!
    read -r -u "$number" display
    DISPLAY=":$display" "${window[@]}" --screenshot "$pictures" || true
    kill "$screen" 2>/dev/null || true
}

if [ "$mode" = daemon ]; then
    echo "The local daemon backs up $home until you press Ctrl-C."
    exec "${daemon[@]}"
fi

"${daemon[@]}" &
pid=$!
trap 'kill "$pid" 2>/dev/null || true; wait "$pid" 2>/dev/null || true' EXIT
${own[@]+"${own[@]}"} "$ctl" --timeout 10 status
kill -0 "$pid" || { echo "run.sh: the local daemon has ended; is another one already running?" >&2; exit 1; }

cat <<END

The local daemon (process $pid) backs up $home.
In another terminal, kill it and start it again, and watch the window reconnect:
    kill -9 $pid
    ./run.sh daemon
Or restore a folder:
    ${KELVANE_DAEMON:+KELVANE_DAEMON=$KELVANE_DAEMON }$ctl restore --wait --to /tmp/restored "$home/Documents"

END
if [ "$mode" = window ] && [ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]; then
    limited "${window[@]}"
    exit
fi
if [ "$mode" = window ]; then
    "$ctl" backup now --wait || true # a failure is shown in the screenshots as well
    "$ctl" ls "$home"
    echo "There is no display here. The window was opened on a virtual one; these are the screenshots:"
    take_pictures
fi
echo "The daemon's state and events are printed below as they change. Press Ctrl-C to stop."
limited "$ctl" watch
