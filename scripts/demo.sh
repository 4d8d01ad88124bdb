#!/usr/bin/env bash
# Backs up a folder, changes and deletes some of it, restores everything into a second folder and compares bytes, owners,
# modes and times; then the same through a server on this machine that is killed in the middle and comes back.
#
#   scripts/demo.sh [--short] [--build DIR]     2,000 files; with --short 300
set -euo pipefail
cd "$(dirname "$0")/.."

count=2000
build=
while [ $# -gt 0 ]; do
    case $1 in
        --short) count=300; shift ;;
        --build) build=${2:?--build needs a folder}; shift 2 ;;
        *) sed -n '2,5s/^# \{0,1\}//p' "$0"; exit 2 ;;
    esac
done
for each in build/dev build/release; do
    [ -n "$build" ] || [ ! -x $each/LocalDaemon/kelvane-local-daemon ] || build=$each
done
folder=$(mktemp -d)
home=$folder/home
export XDG_CONFIG_HOME=$folder/config XDG_STATE_HOME=$folder/state XDG_DATA_HOME=$folder/data \
       XDG_CACHE_HOME=$folder/cache KELVANE_DAEMON=$folder/daemon.sock

daemon=
server=
finish() {
    for process in $daemon $server; do
        kill "$process" 2>/dev/null || true
        wait "$process" 2>/dev/null || true
    done
    chmod -R u+rwx "$folder"
    rm -rf "$folder"
}
trap finish EXIT

say() { printf '%4d s  %s\n' "$SECONDS" "$*"; }
ctl() { "$build/Tools/kelvanectl" --timeout 20 "$@"; }

start_daemon() {
    "$build/LocalDaemon/kelvane-local-daemon" --home "$home" --socket "$KELVANE_DAEMON" --repository "$1" \
        --log "$folder/daemon.log" >>"$folder/log" 2>&1 &
    daemon=$!
}
stop_daemon() {
    kill "$daemon"
    wait "$daemon" || true
    daemon=
}
start_server() {
    rclone serve restic --addr "127.0.0.1:$port" --bwlimit 4M "$folder/served" >>"$folder/rclone.log" 2>&1 &
    server=$!
}
# Kills the server and restarts it three seconds later, during the current operation.
break_server() {
    kill -9 "$server"
    wait "$server" 2>/dev/null || true
    sleep 3
    start_server
    say "  the server was killed, and is back"
}
# Retries, because the server is unavailable for a moment as part of the demonstration.
back_up() {
    local tries=0
    until ctl backup now --wait 2>>"$folder/log"; do
        tries=$((tries + 1))
        [ $tries -lt 60 ] || { tail -20 "$folder/log"; say "FAILED: nothing is backed up"; exit 1; }
        sleep 1
    done
}
wait_for() {
    local tries=0
    until "$@"; do
        tries=$((tries + 1))
        [ $tries -lt 400 ] || { say "FAILED: timed out waiting for: $*"; exit 1; }
        sleep 0.05
    done
}
is_backing_up() { ctl --json call serviceState | grep -qE '^(3|6)$'; }
is_staging() { compgen -G "$1/.kelvane-restore-*/*" >/dev/null; }

make_home() {
    mkdir "$home"
    scripts/trees.py make "$home" "$count"
    cp -a "$home" "$folder/kept"
}
compare() {
    scripts/trees.py compare "$folder/kept" "$1" || { tail -20 "$folder/log"; say "FAILED"; exit 1; }
}
clear_up() {
    chmod -R u+rwx "$folder"/{home,kept,restored} 2>/dev/null || true
    rm -rf "$folder"/{home,kept,restored,config,state,data}
}

say "a repository in a folder, $count files"
make_home
start_daemon "$folder/repository"
back_up
say "  backed up: $(ctl status | sed -n 's/^Backed up *//p')"
scripts/trees.py change "$home" "$folder/kept"
back_up
say "  changed and deleted some, and backed up"
ctl restore --wait --to "$folder/restored" "$home" >/dev/null
say "  restored"
compare "$folder/restored/home"
stop_daemon
clear_up

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
say "a repository behind a server at 127.0.0.1:$port"
mkdir "$folder/served"
make_home
for number in 1 2 3; do
    # Large enough to take a while on a slow connection.
    head -c 10000000 /dev/urandom >"$home/large $number"
done
cp -a "$home"/large* "$folder/kept"
start_server
start_daemon "rest:http://127.0.0.1:$port/"
wait_for is_backing_up
sleep 1
break_server
back_up
say "  backed up: $(ctl status | sed -n 's/^Backed up *//p')"
scripts/trees.py change "$home" "$folder/kept"
back_up
say "  changed and deleted some, and backed up"
rm -rf "$folder/cache"
ctl restore --wait --to "$folder/restored" "$home" >/dev/null &
restore=$!
wait_for is_staging "$folder"
break_server
wait "$restore"
say "  restored"
compare "$folder/restored/home"
say "done"
