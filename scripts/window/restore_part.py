"""The Restore tab: two files of the tree are restored to the Desktop, and a second restore is cancelled."""

import pyatspi

from accessible import Missing, do_action, is_called, is_in, wait_for
from desktop import new_home
from programs import fake_daemon, window

WAY = ("home", "maria", "Documents")
FILES = ("Accounts 2024.ods", "Contract.pdf")
FILE_SIZE, PENDING_COUNT = 16, 35  # The service states in which a daemon reports the progress of a restore.


def run(build):
    with new_home() as home, fake_daemon(build, home) as daemon, window(build, daemon) as shown:
        shown.select_tab("Restore")
        select_files(shown)
        restore_to_desktop(shown)
        check_jobs(daemon, len(FILES))
        if not (home / "Desktop/Kelvane Restored Files").is_dir():
            raise Missing("the folder on the Desktop")
        watch_progress(shown, daemon)
        restore_to_desktop(shown)
        check_jobs(daemon, 2 * len(FILES))
        shown.press("Cancel")
        shown.named("page tab", "Restore")
        wait_for("the end of the jobs", lambda: daemon.call("getRestoreJobStatus:", "1") == 0)
        print("  Cancelled: the tabs are back, and the daemon has no job left")


def select_files(shown):
    disks = shown.find("the column of volumes, filled", lambda node: node.getRoleName() == "list" and
                       node.name == "Backed-up files" and node.childCount > 0)
    do_action(disks[0])
    shown.walk(WAY, first_column=1)
    wait_for("the files' column", lambda: len(shown.columns()) > len(WAY) + 1)
    for number, file in enumerate(FILES):
        do_action(shown.row(file, shown.columns()[len(WAY) + 1]))
        if number == 0:
            shown.press("Get Info")
            shown.find("its Info window", lambda node: node.getRoleName() in ("frame", "dialog", "window")
                       and node.name == f"{file} Info")
            print(f"  An Info window of {file}")
    name = shown.find("the name field for several files",
                      lambda node: node.name == "File name" and node.description == "Multiple files selected")
    print(f"  Selected: {', '.join(FILES)}; the name field says {name.description!r}")


def restore_to_desktop(shown):
    shown.choose(shown.labelled("combo box", "Restore to:"), "Desktop")
    shown.press("Restore")
    alert = shown.named("alert", "Restore to Desktop location may overwrite files.")
    buttons = []
    shown.find_now(lambda node: node.getRoleName() == "push button" and buttons.append(node.name), alert)
    print(f"  The alert: {alert.name!r}, buttons {buttons}")
    shown.press("Restore to Desktop")
    status = shown.described("Restore status")
    print(f"  Begun: {status.name!r}")


def check_jobs(daemon, count):
    states = [daemon.call("getRestoreJobStatus:", str(job + 1)) for job in range(count)]
    print(f"  The daemon's jobs: {states}")
    if 0 in states:
        raise Missing(f"{count} jobs")


def tell(daemon, pending, size):
    daemon.play({"answer": "longlongForState:", "value": size}, {"answer": "longForState:", "value": pending},
                *({"callback": "stateChanged:", "arguments": [code]} for code in (FILE_SIZE, PENDING_COUNT)))


def expect_progress(shown, status, waiting, percent):
    shown.find(f"the status {status!r}", lambda node: node.description == "Restore status" and node.name == status)
    shown.find(f"{waiting!r} waiting",
               lambda node: node.description == "Waiting to be restored" and node.name == waiting)
    bar = shown.named("progress bar", "Restore progress")
    wait_for(f"{percent} per cent", lambda: bar.queryValue().currentValue == percent)
    print(f"  {status}; waiting: {waiting}; bar at {percent} %")


def watch_progress(shown, daemon):
    tell(daemon, 2, 186_420)
    expect_progress(shown, "Restoring item 1 of 2, 182.05 KB", "2 files", 0)
    pause = shown.find("the Pause button", lambda node: node.name == "Pause")
    for state in ("held", "going on"):
        do_action(pause)
        wait_for("the Pause button's change",
                 lambda wanted=state: is_in(pause, pyatspi.STATE_CHECKED) == (wanted == "held"))
        print(f"  Pause pressed: the display is {state}")
    tell(daemon, 1, 2_000_000)
    expect_progress(shown, "Restoring item 2 of 2, 1.91 MB", "1 files", 50)
    tell(daemon, 0, 0)
    shown.gone("the progress view", is_called("progress bar", "Restore progress"))
    shown.named("page tab", "Restore")
    print("  At its end the tabs are back")
