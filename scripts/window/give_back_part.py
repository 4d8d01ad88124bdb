"""The Restore tab with the local daemon: lost files are restored, and a second restore is cancelled."""

import os
import shutil
import time

from accessible import Missing, do_action, is_called, wait_for
from desktop import new_home
from programs import local_daemon, window

FOLDER = "Letters"
FILES = 40
LARGE = 200_000_000  # bytes
SPEED = 15_000  # In KB/s, so that a restore takes a while.
STAGING = ".kelvane-restore-*"
LATEST_END = 2.0  # Seconds from the request to cancel until nothing of the restore is left.


def run(build):
    with new_home() as home:
        watched = home / "Files"
        contents = fill(watched)
        with local_daemon(build, home, watched, resticProgram=slow_restic(home)) as daemon:
            daemon.ask("--timeout", "30", "backup", "now", "--wait")
            shutil.rmtree(watched / FOLDER)
            with window(build, daemon) as shown:
                shown.select_tab("Restore")
                select(shown, watched / FOLDER)
                restore_lost(shown, watched / FOLDER, contents)
                select_too(shown, watched, "large")
                cancel(shown, daemon, watched, home)


def fill(watched):
    """Returns the contents of the files in the folder that will be lost, by name."""
    (watched / FOLDER).mkdir(parents=True)
    contents = {f"Letter {number}.txt": f"Dear {number},\n" * number for number in range(1, FILES + 1)}
    for name, text in contents.items():
        (watched / FOLDER / name).write_text(text)
    (watched / "large").write_bytes(os.urandom(LARGE))
    return contents


def slow_restic(home):
    program = home / "slow-restic"
    program.write_text(f'#!/bin/sh\nexec restic --limit-download {SPEED} "$@"\n')
    program.chmod(0o700)
    return str(program)


def select(shown, path):
    disks = shown.find("the column of volumes, filled", lambda node: node.getRoleName() == "list" and
                       node.name == "Backed-up files" and node.childCount > 0)
    do_action(disks[0])
    shown.walk(path.parts[1:], first_column=1)
    print(f"  Selected: {path.name}")


def select_too(shown, watched, name):
    do_action(shown.row(name, shown.columns()[len(watched.parts)]))
    print(f"  Selected, too: {name}")


def begin(shown, place, button):
    shown.choose(shown.labelled("combo box", "Restore to:"), place)
    shown.press("Restore")
    shown.press(button)


def restore_lost(shown, folder, contents):
    begin(shown, "Original Location", "Restore to Original")
    wait_for("the folder in its place", folder.exists)
    shown.gone("the progress view", is_called("progress bar", "Restore progress"))
    shown.named("page tab", "Restore")
    found = {path.name: path.read_text() for path in folder.iterdir()}
    if found != contents:
        raise Missing(f"{FILES} files as they were; there are {len(found)}")
    print(f"  Restored to its place: {len(found)} files, each as it was; the tabs are back")


def is_there(folder, pattern):
    while True:
        try:
            return any(folder.glob(pattern))
        except FileNotFoundError:
            pass  # A folder disappeared while it was listed.


def cancel(shown, daemon, watched, home):
    before = (watched / "large").stat().st_ino
    begin(shown, "Desktop", "Restore to Desktop")
    shown.named("progress bar", "Restore progress")
    target = home / "Desktop/Kelvane Restored Files"
    wait_for("what is being brought", lambda: is_there(target, STAGING + "/*/**/large"))
    started = time.monotonic()
    shown.press("Cancel")
    wait_for("the end of the restore", lambda: not is_there(target, "**/large") and not is_there(target, STAGING))
    took = time.monotonic() - started
    shown.named("page tab", "Restore")
    if took > LATEST_END or daemon.call("getCurrentRestoreJob") != 0:
        raise Missing(f"an end in {LATEST_END} s; it took {took:.1f} s")
    if (watched / "large").stat().st_ino != before:
        raise Missing("the file that was there before")
    print(f"  Cancelled: after {took:.1f} s no partial file is left; the tabs are back")
