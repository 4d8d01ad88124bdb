"""The Backup tab on a real folder: the list of exclusions, manual mode, and a file that another program creates."""

import pathlib
import subprocess
import sys
import time

from accessible import Missing, do_action, is_row, middle_of, wait_for
from desktop import new_home
from programs import local_daemon, window

LATEST_ROW = 8  # seconds from a change of a folder to its row


def run(build):
    with new_home() as home:
        watched = home / "Files"
        for name in ("Drafts", "Photos", "Receipts"):
            (watched / name).mkdir(parents=True)
            (watched / name / f"{name}.txt").write_text(name)
        (watched / "Notes.txt").write_text("Notes\n")
        with local_daemon(build, home, watched) as daemon, window(build, daemon) as shown:
            shown.select_tab("Backup")
            exclude_by_panel(shown, daemon, watched / "Drafts")
            exclude_by_drop(shown, daemon, [watched / "Photos", watched / "Receipts"])
            remove(shown, daemon, watched / "Drafts")
            go_manual(shown, daemon)
            mark(shown, daemon, watched / "Notes.txt")
            watch_folder(shown, watched)


def excluded(daemon):
    return [pathlib.Path(line.split("\t")[-1]).name for line in daemon.ask("exclude", "list").splitlines()]


def wait_for_exclusions(shown, daemon, *names):
    for name in names:
        shown.named("table cell", name)
    wait_for(f"the daemon's exclusion of {names}", lambda: set(names) <= set(excluded(daemon)))


def exclude_by_panel(shown, daemon, folder):
    shown.press("Add files and folders to the list")
    panel = shown.find("the panel", lambda node: node.getRoleName() in ("dialog", "file chooser"))
    print(f"  The panel: {panel.name!r}")
    shown.write(shown.named("text", "File name:", panel), str(folder))
    shown.press("Select")
    wait_for_exclusions(shown, daemon, folder.name)
    print(f"  Excluded by the panel: {excluded(daemon)}")


def exclude_by_drop(shown, daemon, folders):
    table = shown.named("table", "Files and folders that are not backed up")
    drop = [sys.executable, pathlib.Path(__file__).with_name("drop.py"), *middle_of(table), *folders]
    if subprocess.call([str(word) for word in drop]) != 0:
        raise Missing("a drop that is taken")
    wait_for_exclusions(shown, daemon, *(folder.name for folder in folders))
    print(f"  Excluded by drop: {excluded(daemon)}")


def remove(shown, daemon, folder):
    shown.click(shown.named("table cell", folder.name))
    shown.press("Remove the selected items from the list")
    shown.gone(f"the row {folder.name}", lambda node: node.getRoleName() == "table cell" and node.name == folder.name)
    print(f"  Excluded after a removal: {excluded(daemon)}")
    if folder.name in excluded(daemon):
        raise Missing(f"the removal of {folder.name}")


def go_manual(shown, daemon):
    daemon.call("setAutomaticMode:", "false")
    shown.button("Automatically Manage My Backup")
    print("  Manual mode, asked for with kelvanectl: the browser shows")


def mark(shown, daemon, file):
    disks = shown.find("the column of disks, filled",
                       lambda node: node.getRoleName() == "list" and node.name == "Disks" and node.childCount > 0)
    do_action(disks[0])
    shown.walk(file.parts[1:], first_column=1)
    print(f"  The file's row: {shown.row(file.name).name!r}")
    # Manual mode starts with what automatic mode has backed up.
    for button, other in (("Do not back this up", "Back this up"), ("Back this up", "Do not back this up")):
        before = shown.row(file.name).name
        shown.press(button)
        wait_for("another bullet", lambda seen=before: shown.row(file.name).name != seen)
        print(f'  After "{button}": {shown.row(file.name).name!r}')
        shown.button(other)


def watch_folder(shown, folder):
    subprocess.run(["cp", folder / "Notes.txt", folder / "Arrived.txt"], check=True)
    started = time.monotonic()
    shown.find("the new file's row", is_row("Arrived.txt"))
    took = time.monotonic() - started
    print(f"  A file that cp made is listed after {took:.1f} s: {shown.row('Arrived.txt').name!r}")
    if took > LATEST_ROW:
        raise Missing(f"the row within {LATEST_ROW} s")
    (folder / "Arrived.txt").unlink()
    started = time.monotonic()
    shown.gone("the removed file's row", is_row("Arrived.txt"))
    print(f"  The row of the removed file disappears after {time.monotonic() - started:.1f} s")
