"""A private desktop: a virtual display, a session bus, and an unused home folder."""

import contextlib
import os
import pathlib
import subprocess
import sys
import tempfile

MARK = "KELVANE_PRIVATE_DESKTOP"


def is_private():
    return MARK in os.environ


@contextlib.contextmanager
def virtual_display(size="1280x960x24"):
    reader, writer = os.pipe()
    screen = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-screen", "0", size, "-nolisten", "tcp", "-noreset"],
                              pass_fds=[writer], stderr=subprocess.DEVNULL)
    os.close(writer)
    try:
        with os.fdopen(reader) as answer:
            number = answer.readline().strip()
        if not number:
            raise SystemExit("Xvfb has opened no display")
        yield f":{number}"
    finally:
        screen.terminate()
        screen.wait()


def run_again_privately():
    """Runs this program with its arguments on a private desktop; returns its exit status."""
    with virtual_display() as display, tempfile.TemporaryDirectory(prefix="kw-") as folder:
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith(("XDG_", "DBUS_", "WAYLAND_", "QT_", "KELVANE_"))}
        environment |= {MARK: folder, "DISPLAY": display, "HOME": folder, "TMPDIR": folder,
                        "XDG_RUNTIME_DIR": folder, "QT_LINUX_ACCESSIBILITY_ALWAYS_ON": "1", "LC_ALL": "C.UTF-8"}
        command = ["dbus-run-session", "--", sys.executable, *sys.argv]
        return subprocess.call(command, env=environment)


@contextlib.contextmanager
def new_home():
    """A folder that serves as the home of the programs started in the block."""
    with tempfile.TemporaryDirectory(prefix="h", dir=os.environ[MARK]) as folder:
        before = {name: os.environ.get(name) for name in ("HOME", "TMPDIR")}
        temporary = pathlib.Path(folder) / ".tmp"
        temporary.mkdir()
        os.environ.update(HOME=folder, TMPDIR=str(temporary))
        try:
            yield pathlib.Path(folder)
        finally:
            os.environ.update(before)
