#!/usr/bin/env python3
"""Kills a daemon and starts it again, many times, under "kelvanectl watch".

    scripts/restart-test.py [COUNT] [--build DIR]

Fails unless every loss and every return is announced once, each return within 1.2 s of the moment at which the
daemon listens again, and the watcher has no more threads and descriptors at the end than after the first restart.
The daemon is the local one when it has been built, else the fake one.
"""

import argparse
import json
import os
import pathlib
import queue
import random
import signal
import subprocess
import sys
import tempfile
import threading
import time

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = ["build/dev", "build/release", "build/asan"]
LATEST_RETURN = 1.2  # seconds
TIMEOUT = 20.0  # Seconds until an expected event counts as missing.


class Failure(Exception):
    pass


def find_build(named):
    for build in [named] if named else BUILDS:
        if (ROOT / build / "Tools/kelvanectl").exists():
            return ROOT / build
    raise Failure("kelvanectl has not been built")


class Daemon:
    """The daemon, in a separate folder; `start` returns when it accepts connections."""

    def __init__(self, build, folder, environment):
        self.socket = folder / "daemon.sock"
        self.environment = environment
        local = build / "LocalDaemon/kelvane-local-daemon"
        home = folder / "home"
        home.mkdir()
        for number in range(20):
            (home / f"file {number}").write_text("x" * number)
        if local.exists():
            self.command = [local, "--home", home, "--socket", self.socket]
        else:
            self.command = [build / "Tests/kelvane-fake-daemon", "--socket", self.socket]
        self.name = self.command[0].name
        self.log = open(folder / "daemon.log", "w+")
        self.process = None

    def start(self):
        self.process = subprocess.Popen(self.command, stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log,
                                        env=self.environment)
        deadline = time.monotonic() + TIMEOUT
        while not self.socket.exists():
            if self.process.poll() is not None or time.monotonic() > deadline:
                self.log.seek(0)
                raise Failure(f"{self.name} does not start: {self.log.read()}")
            time.sleep(0.001)
        return time.monotonic()

    def kill(self):
        if self.process:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
            # The socket file of a killed daemon must not be mistaken for the next daemon.
            self.socket.unlink(missing_ok=True)


class Watcher:
    """`kelvanectl watch` and its connection events, each with the time at which its line arrived."""

    def __init__(self, build, socket, environment):
        self.process = subprocess.Popen([build / "Tools/kelvanectl", "--daemon", socket, "--json", "watch"],
                                        stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, text=True, env=environment)
        self.events = queue.Queue()
        self.reader = threading.Thread(target=self.read, daemon=True)
        self.reader.start()

    def read(self):
        for line in self.process.stdout:
            event = json.loads(line)["event"]
            if event in ("connected", "disconnected"):
                self.events.put((event, time.monotonic()))
        self.events.put(("the end", time.monotonic()))

    def expect(self, expected):
        try:
            event, moment = self.events.get(timeout=TIMEOUT)
        except queue.Empty:
            raise Failure(f'no "{expected}" within {TIMEOUT:.0f} s') from None
        if event != expected:
            raise Failure(f'"{event}" where "{expected}" was due')
        return moment

    def expect_nothing_more(self):
        if not self.events.empty():
            raise Failure(f'"{self.events.get()[0]}" where nothing was due')

    def resources(self):
        process = pathlib.Path("/proc") / str(self.process.pid)
        return len(list((process / "task").iterdir())), len(list((process / "fd").iterdir()))

    def settled_resources(self, at_most):
        """Waits, because a thread of the last connection may run for up to 2 s more."""
        deadline = time.monotonic() + 2
        while True:
            now = self.resources()
            if all(n <= most for n, most in zip(now, at_most)) or time.monotonic() > deadline:
                return now
            time.sleep(0.01)

    def end(self):
        self.process.send_signal(signal.SIGINT)
        return self.process.wait(TIMEOUT)


def run(count, build, folder):
    environment = {**os.environ, "HOME": str(folder), "XDG_RUNTIME_DIR": str(folder)}
    for name in ("XDG_CONFIG_HOME", "XDG_STATE_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME"):
        environment[name] = str(folder / name.lower())
    chance = random.Random(count)
    daemon = Daemon(build, folder, environment)
    watcher = Watcher(build, daemon.socket, environment)
    losses, returns, first = [], [], None
    try:
        daemon.start()
        watcher.expect("connected")
        for number in range(1, count + 1):
            time.sleep(chance.choice([0, 0.01, 0.1, 0.3]))  # During the first poll or after it.
            watcher.expect_nothing_more()
            killed = time.monotonic()
            daemon.kill()
            losses.append(watcher.expect("disconnected") - killed)
            listening = daemon.start()
            returns.append(watcher.expect("connected") - listening)
            if returns[-1] > LATEST_RETURN:
                raise Failure(f"restart {number}: back only after {returns[-1]:.2f} s")
            if first is None:
                time.sleep(2.2)  # Until all threads of the first connection have ended.
                first = watcher.resources()
        last = watcher.settled_resources(first)
        watcher.expect_nothing_more()
        if any(n > most for n, most in zip(last, first)):
            raise Failure(f"threads and descriptors grew from {first} to {last}")
        if (status := watcher.end()) != 0:
            raise Failure(f"the watcher ended with status {status}")
    finally:
        daemon.kill()
        watcher.process.kill()
        watcher.process.wait()
    return (f"{count} restarts of {daemon.name}: every loss and every return announced once; "
            f"lost after at most {max(losses):.2f} s, back after at most {max(returns):.2f} s; "
            f"threads {first[0]} then {last[0]}, descriptors {first[1]} then {last[1]}")


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("count", nargs="?", type=int, default=100)
    parser.add_argument("--build", help="the build folder (default: the first of " + ", ".join(BUILDS) + ")")
    options = parser.parse_args()
    if options.count < 1:
        parser.error("COUNT is 1 or more")
    try:
        with tempfile.TemporaryDirectory(prefix="kelvane-restart-") as folder:
            print(run(options.count, find_build(options.build), pathlib.Path(folder)))
    except Failure as failure:
        sys.exit(f"restart-test: {failure}")


if __name__ == "__main__":
    main()
