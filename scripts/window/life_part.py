"""Nothing is left behind: the pane is selected and unselected many times, and the host started many times."""

import subprocess

import pyatspi

from accessible import Missing, Window, is_in, wait_for
from desktop import new_home
from programs import host_command, local_daemon, running, uses, window

SELECTIONS = 100
STARTS = 10


def run(build):
    with new_home() as home:
        watched = home / "Files"
        watched.mkdir()
        (watched / "Notes.txt").write_text("Notes\n")
        with local_daemon(build, home, watched) as daemon:
            select_many_times(build, daemon)
            start_many_times(build, daemon)


def expect_equal(what, before, after):
    print(f"  {what}: {before} before, {after} after")
    if before != after:
        raise Missing(f"the same before and after: {what}")


def top_level_windows(process):
    found = subprocess.run(["xdotool", "search", "--pid", str(process.pid)], capture_output=True, text=True,
                           check=False)
    return len(found.stdout.split())


def select_many_times(build, daemon):
    with window(build, daemon) as shown:
        panes = {name: shown.named("list item", name) for name in ("Kelvane", "About")}
        tabs = shown.find("the tabs", lambda node: node.getRoleName() == "page tab list")

        def select(name):
            shown.click(panes[name])
            wait_for(f"the pane {name}", lambda: is_in(tabs, pyatspi.STATE_SHOWING) == (name == "Kelvane"))
            wait_for("the link, or its end", lambda: daemon.links() == (name == "Kelvane"))

        def settled():
            return steady(shown.process), steady(daemon.process), top_level_windows(shown.process)

        select("About")
        select("Kelvane")
        before = settled()
        for _ in range(SELECTIONS):
            select("About")
            select("Kelvane")
        after = settled()
        for what, one, other in zip(("host", "daemon", "top-level windows of the host"), before, after):
            expect_equal(f"{SELECTIONS} selections, {what}", one, other)


def steady(process):
    """Returns the process's resources once they have been stable for a while."""
    seen = []

    def is_steady():
        seen.append(uses(process))
        return len(seen) > 20 and all(use == seen[-1] for use in seen[-20:])

    wait_for("the process's resources to become stable", is_steady)
    return seen[-1]


def start_many_times(build, daemon):
    before = steady(daemon.process)
    hosts = []
    for _ in range(STARTS):
        with running(host_command(build, daemon)) as process:
            shown = Window()
            shown.described("Account")
            wait_for("the link", lambda: daemon.links() == 1)
            hosts.append((steady(process), top_level_windows(process)))
        wait_for("the end of the link", lambda: daemon.links() == 0)
        wait_for("the end of the host's accessibility", lambda host=shown: not host.is_running())
    expect_equal(f"{STARTS} starts, daemon", before, steady(daemon.process))
    expect_equal(f"{STARTS} starts, first and last host and its top-level windows", hosts[0], hosts[-1])
