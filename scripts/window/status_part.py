"""The Status tab: everything on it is found and read, and the mode is changed."""

from accessible import Missing, nodes_below
from desktop import new_home
from programs import fake_daemon, window

VALUES = ("Mode explanation", "Backup status", "Backup contains", "Awaiting backup", "Account", "Version")
MODES = ["Enabled", "Paused", "Recover", "Disabled"]


def run(build):
    with new_home() as home, fake_daemon(build, home) as daemon, window(build, daemon) as shown:
        shown.named("page tab", "Status")
        read_values(shown)
        for name in ("Give backups a lower priority", "Show Kelvane status in the menu bar"):
            shown.named("check box", name)
        shown.button("Open Account")
        pause(shown, daemon)


def read_values(shown):
    for description in VALUES:
        value = shown.find(f'a value for "{description}"',
                           lambda node, wanted=description: node.description == wanted and node.name)
        print(f"  {description}: {value.name!r}")


def pause(shown, daemon):
    mode = shown.labelled("combo box", "Backup mode")
    items = [node.name for node in nodes_below(mode) if node.getRoleName() == "list item"]
    print("  Backup mode:", items)
    if items != MODES:
        raise Missing(f"the modes {MODES}")
    shown.choose(mode, "Paused")
    shown.find("the sentence about the pause",
               lambda node: node.description == "Mode explanation" and "24 hours" in node.name)
    minutes = daemon.call("pausedMinutes")
    print(f"  Paused: the daemon pauses for {minutes} minutes")
    if minutes != 1440:
        raise Missing("a pause of 1440 minutes")
