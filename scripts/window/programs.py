"""The programs that a window test runs; each ends with the block that started it."""

import contextlib
import json
import os
import pathlib
import plistlib
import shutil
import subprocess

from accessible import Missing, Window, wait_for

ENDING = 10  # seconds


class Build:
    def __init__(self, folder):
        self.folder = pathlib.Path(folder).resolve()
        self.host = self.folder / "kelvane-settings"
        self.ctl = self.folder / "Tools/kelvanectl"
        self.bundle = self.folder / "Bundles/Kelvane.prefPane"
        self.local_daemon = self.folder / "LocalDaemon/kelvane-local-daemon"
        self.fake_daemon = self.folder / "FakeDaemon/kelvane-fake-daemon"
        for program in (self.host, self.ctl, self.local_daemon, self.fake_daemon):
            if not program.exists():
                raise SystemExit(f"not built: {program}")

    def bundle_with(self, information, folder):
        """Creates a copy of the bundle with changes in its information dictionary."""
        copy = folder / "Kelvane.prefPane"
        shutil.copytree(self.bundle, copy)
        path = copy / "Info.plist"
        path.write_bytes(plistlib.dumps(plistlib.loads(path.read_bytes()) | information))
        return copy


@contextlib.contextmanager
def running(command, **options):
    process = subprocess.Popen([str(word) for word in command], **options)
    try:
        yield process
    finally:
        process.terminate()
        try:
            status = process.wait(ENDING)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()
            raise Missing(f"{command[0]} did not end in {ENDING} s") from None
    if status != 0:
        raise Missing(f"{command[0]} ended with {status}")


class Daemon:
    def __init__(self, build, process, socket):
        self.build = build
        self.process = process
        self.socket = socket

    def ask(self, *words):
        """Returns the output of kelvanectl."""
        command = [self.build.ctl, "--daemon", self.socket, *words]
        done = subprocess.run([str(word) for word in command], capture_output=True, text=True, check=False)
        if done.returncode != 0:
            raise Missing(f"kelvanectl {' '.join(words)}: {done.stderr.strip()}")
        return done.stdout.strip()

    def call(self, selector, *words):
        answer = self.ask("call", selector, *words)
        return json.loads(answer) if answer else None

    def links(self):
        """Returns the number of connected panes."""
        connected = "03"
        lines = [line.split() for line in pathlib.Path("/proc/net/unix").read_text().splitlines()]
        return sum(line[-1] == str(self.socket) and line[5] == connected for line in lines)

    def play(self, *steps):
        """Sends further commands to the fake daemon."""
        for step in steps:
            self.process.stdin.write(json.dumps(step).encode() + b"\n")
        self.process.stdin.flush()


@contextlib.contextmanager
def fake_daemon(build, home):
    socket = home / "daemon.sock"
    command = [build.fake_daemon, "--socket", socket, "--script", "-"]
    with running(command, stdin=subprocess.PIPE, stdout=subprocess.DEVNULL) as process:
        wait_for("the fake daemon", socket.exists)
        yield Daemon(build, process, socket)


@contextlib.contextmanager
def local_daemon(build, home, watched, **configuration):
    """Runs the daemon with a policy that includes temporary folders, where the test's files are, and further entries."""
    socket = home / "daemon.sock"
    file = home / ".config/kelvane/local-daemon.plist"
    file.parent.mkdir(parents=True)
    file.write_bytes(plistlib.dumps({"policyExcludeList": ["/dev/", "/proc/", "/sys/"]} | configuration))
    with running([build.local_daemon, "--home", watched, "--socket", socket]) as process:
        wait_for("the local daemon", socket.exists)
        yield Daemon(build, process, socket)


def host_command(build, daemon, bundle=None, *more):
    return [build.host, "--pane", bundle or build.bundle, "--daemon", daemon.socket, "--authorization", "granted",
            *more]


@contextlib.contextmanager
def window(build, daemon, bundle=None, *more):
    """The host with its window, operated through the accessibility interface."""
    with running(host_command(build, daemon, bundle, *more)) as process:
        shown = Window()
        shown.process = process
        yield shown


def uses(process):
    """Returns a process's current numbers of threads and descriptors."""
    folder = pathlib.Path(f"/proc/{process.pid}")
    return {"threads": len(os.listdir(folder / "task")), "descriptors": len(os.listdir(folder / "fd"))}
