#!/usr/bin/python3
"""Measures the window: its start relative to that of an empty Qt window, and its CPU time while idle.

    scripts/window-bench.py [BUILD FOLDER] [SECONDS OF IDLENESS]

Needs a release build with kelvane-bench's targets, and xvfb. Fails when a budget is exceeded.
"""

import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "window"))

import desktop  # noqa: E402

STARTS = 20
START_BUDGET = 1.5  # Relative to an empty window's start.
IDLE_BUDGET = 0.2  # Per cent of one core.


def lifetime(command, environment):
    begin = time.monotonic()
    subprocess.run(command, env=environment, check=True, stderr=subprocess.DEVNULL)
    return time.monotonic() - begin


def measure_start(build, environment):
    host = [f"{build}/kelvane-settings", "--pane", f"{build}/Bundles/Kelvane.prefPane", "--end-when-painted"]
    empty = [f"{build}/Bench/kelvane-empty-window"]
    times = {name: [] for name in ("host", "empty")}
    for turn in range(STARTS + 1):
        for name, command in (("host", host), ("empty", empty)):
            seconds = lifetime(command, environment)
            if turn > 0:  # The first run reads the disk.
                times[name].append(seconds)
    host, empty = (statistics.median(times[name]) for name in ("host", "empty"))
    print(f"start to the painted window and end: {host * 1000:.0f} ms, an empty window {empty * 1000:.0f} ms: "
          f"{host / empty:.2f} of at most {START_BUDGET}")
    return host / empty <= START_BUDGET


def processor_seconds(process):
    with open(f"/proc/{process.pid}/stat", encoding="ascii") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")


def measure_idleness(build, environment, folder, seconds):
    socket = os.path.join(folder, "daemon.sock")
    daemon = subprocess.Popen([f"{build}/LocalDaemon/kelvane-local-daemon", "--socket", socket, "--home", folder],
                              env=environment, stderr=subprocess.DEVNULL)
    host = subprocess.Popen([f"{build}/kelvane-settings", "--pane", f"{build}/Bundles/Kelvane.prefPane",
                             "--daemon", socket, "--authorization", "granted"],
                            env=environment, stderr=subprocess.DEVNULL)
    try:
        time.sleep(5)  # The window is open and connected.
        before = processor_seconds(host)
        time.sleep(seconds)
        share = (processor_seconds(host) - before) / seconds * 100
    finally:
        host.terminate()
        host.wait(10)
        daemon.terminate()
        daemon.wait(10)
    print(f"idle and connected for {seconds} s: {share:.2f} % of one core of at most {IDLE_BUDGET} %")
    return share <= IDLE_BUDGET


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/release")
    seconds = int(sys.argv[2]) if len(sys.argv) > 2 else 60
    with desktop.virtual_display() as display, tempfile.TemporaryDirectory() as folder:
        environment = dict(os.environ, DISPLAY=display)
        environment |= {name: folder for name in ("HOME", "XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_STATE_HOME",
                                                  "XDG_CACHE_HOME")}
        results = [measure_start(build, environment), measure_idleness(build, environment, folder, seconds)]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
