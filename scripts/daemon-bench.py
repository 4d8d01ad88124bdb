#!/usr/bin/env python3
"""Measures the local daemon on a home folder of 100,000 files, in temporary folders.

    scripts/daemon-bench.py [BUILD]      BUILD: build folder (default: build/release)
"""

import contextlib
import json
import os
import pathlib
import re
import signal
import subprocess
import sys
import tempfile
import time

WIDE = 10_000
FOLDERS, FILES = 900, 100
build = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else "build/release").resolve()


def make_home(home):
    wide = home / "wide"
    wide.mkdir(parents=True)
    for number in range(WIDE):
        (wide / f"file {number:05}.txt").write_text(f"{number}\n" * 5)
    for folder in range(FOLDERS):
        path = home / f"d{folder // 30:02}/e{folder % 30:02}"
        path.mkdir(parents=True)
        for number in range(FILES):
            (path / f"document-{number:03}.dat").write_text(f"{folder} {number}\n" * 20)


class Daemon:
    def __init__(self, root, home, log):
        (root / "run").mkdir(mode=0o700, exist_ok=True)
        places = {"HOME": "user", "XDG_CONFIG_HOME": "config", "XDG_STATE_HOME": "state", "XDG_DATA_HOME": "data",
                  "XDG_CACHE_HOME": "cache", "XDG_RUNTIME_DIR": "run"}
        self.environment = {**os.environ, **{name: str(root / place) for name, place in places.items()}}
        self.log = root / log
        self.process = subprocess.Popen(
            [build / "LocalDaemon/kelvane-local-daemon", "--home", home, "--verbose", "--log", self.log],
            env=self.environment, stderr=subprocess.DEVNULL)

    def ctl(self, *words):
        return subprocess.run([build / "Tools/kelvanectl", "--json", "--timeout", "60", *words], env=self.environment,
                              capture_output=True, text=True, check=False).stdout

    def state(self):
        with contextlib.suppress(ValueError):
            return json.loads(self.ctl("status") or "{}").get("serviceState", 0)
        return 0

    def wait_for(self, *states, seconds=300):
        end = time.monotonic() + seconds
        while self.state() not in states:
            if time.monotonic() > end:
                sys.exit(f"daemon-bench: no service state of {states} within {seconds} s")
            time.sleep(0.05)

    def column(self, path):
        begin = time.monotonic()
        self.ctl("ls", str(path))
        return time.monotonic() - begin

    def logged(self, text):
        """Returns when the text first appears in the log, in seconds since the daemon's first line."""
        times = []
        for line in self.log.read_text().splitlines():
            stamp = re.match(r"\S+ (\d+):(\d+):([\d.]+)", line)
            times.append(sum(float(part) * scale for part, scale in zip(stamp.groups(), (3600, 60, 1))))
            if text in line:
                return times[-1] - times[0]
        return float("nan")

    def memory(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return {name: int(re.search(name + r":\s+(\d+)", status)[1]) / 1024 for name in ("VmHWM", "VmRSS")}

    def processor_time(self):
        fields = pathlib.Path(f"/proc/{self.process.pid}/stat").read_text().rsplit(")", 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf("SC_CLK_TCK")

    def end(self):
        self.process.send_signal(signal.SIGTERM)
        self.process.wait(20)


def main():
    with tempfile.TemporaryDirectory(prefix="kelvane-bench-") as folder:
        root = pathlib.Path(folder)
        home = root / "home"
        make_home(home)
        daemon = Daemon(root, home, "first.log")
        try:
            daemon.wait_for(5, 3)
            quiet = [daemon.column(home / "wide") for _ in range(5)]
            daemon.wait_for(3)
            busy = []
            while daemon.state() == 3:
                busy.append(daemon.column(home / "wide"))
            daemon.wait_for(8)
            print(f"first scan                {daemon.logged('scan has found'):.2f} s")
            print(f"first backup and its index {daemon.logged('restic ls') - daemon.logged('restic snapshots'):.1f} s")
            print(f"a column of 10,000        {sorted(quiet)[2] * 1000:.0f} ms; during the backup at most "
                  f"{max(busy, default=0) * 1000:.0f} ms of {len(busy)}")
            memory = daemon.memory()
            print(f"memory                    {memory['VmRSS']:.0f} MB, at most {memory['VmHWM']:.0f} MB")
        finally:
            daemon.end()
        daemon = Daemon(root, home, "second.log")
        try:
            daemon.wait_for(8)
            time.sleep(10)  # The daemon's own work after its start.
            print(f"start with the index, scan {daemon.logged('scan has found'):.2f} s")
            before = daemon.processor_time()
            time.sleep(30)
            print(f"idle                      {(daemon.processor_time() - before) / 30 * 100:.2f} % of one core")
        finally:
            daemon.end()


main()
