#!/usr/bin/python3
"""Works the window as a screen reader does: through the accessibility interface alone.

Starts a virtual display, a session bus, the fake daemon and kelvane-settings, finds the controls of the Status
tab by their names and descriptions, reads them, changes the mode, and sees the daemon's state change.

    scripts/screen-reader-test.py [BUILD FOLDER]

Needs at-spi2-core, python3-pyatspi and xvfb. Ends with status 0 when everything was found and done.
"""

import os
import subprocess
import sys
import tempfile
import time

PATIENCE = 20  # seconds


def wait_for(what, condition):
    deadline = time.monotonic() + PATIENCE
    while time.monotonic() < deadline:
        result = condition()
        if result:
            return result
        time.sleep(0.1)
    raise SystemExit(f"not found in {PATIENCE} s: {what}")


def everything_below(root):
    pending = [root]
    while pending:
        node = pending.pop()
        yield node
        try:
            pending.extend(child for child in node if child is not None)
        except Exception:  # it went while it was looked at
            pass


class Window:
    def __init__(self, pyatspi):
        self.pyatspi = pyatspi
        self.root = wait_for("the application", self.application)

    def application(self):
        for app in self.pyatspi.Registry.getDesktop(0):
            if app is not None and "kelvane" in app.name.lower():
                return app
        return None

    def find(self, what, test):
        def look():
            for node in everything_below(self.root):
                try:
                    if test(node):
                        return node
                except Exception:
                    continue
            return None

        return wait_for(what, look)

    def named(self, role, name):
        return self.find(f'{role} "{name}"', lambda node: node.getRoleName() == role and node.name == name)

    def click(self, node):
        def place():
            extents = node.queryComponent().getExtents(self.pyatspi.DESKTOP_COORDS)
            return extents if extents.width > 0 and extents.height > 0 else None

        at = wait_for(f'the place of "{node.name}"', place)
        time.sleep(0.3)  # while it is still moving in
        self.pyatspi.Registry.generateMouseEvent(at.x + at.width // 2, at.y + at.height // 2, "b1c")

    def labelled(self, role, label):
        def is_labelled(node):
            if node.getRoleName() != role:
                return False
            return any(relation.getTarget(i).name == label
                       for relation in node.getRelationSet()
                       if relation.getRelationType() == self.pyatspi.RELATION_LABELLED_BY
                       for i in range(relation.getNTargets()))

        return self.find(f'{role} labelled "{label}"', is_labelled)

    def described(self, description):
        node = self.find(f'a value described as "{description}"', lambda node: node.description == description)
        print(f"  {description}: {node.name!r}")
        return node


def check_status_tab(window, daemon_state):
    window.named("page tab", "Status")
    for description in ("Mode explanation", "Backup status", "Backup contains", "Awaiting backup", "Account", "Version"):
        node = window.described(description)
        if not node.name:
            raise SystemExit(f'"{description}" says nothing')
    for name in ("Give backups a lower priority", "Show Kelvane status in the menu bar"):
        window.named("check box", name)
    window.named("push button", "Open Account")

    mode = window.labelled("combo box", "Backup mode")
    items = [node.name for node in everything_below(mode) if node.getRoleName() in ("menu item", "list item")]
    print("  Backup mode:", items)
    if items != ["Enabled", "Paused", "Recover", "Disabled"] and set(items) != {"Enabled", "Paused", "Recover", "Disabled"}:
        raise SystemExit(f"the modes are {items}")

    mode.queryAction().doAction(0)  # opens it
    item = next(node for node in everything_below(mode) if node.name == "Paused" and node.getRoleName() != "text")
    window.click(item)
    wait_for("the daemon's pause", lambda: daemon_state("pausedMinutes") == "1440")
    print("  Paused: the daemon pauses for 1440 minutes")
    wait_for("the sentence about the pause", lambda: "24 hours" in window.described("Mode explanation").name)


def run(build, folder):
    import pyatspi

    socket = os.path.join(folder, "daemon.sock")
    daemon = subprocess.Popen([f"{build}/FakeDaemon/kelvane-fake-daemon", "--socket", socket])
    wait_for("the daemon", lambda: os.path.exists(socket))

    def daemon_state(selector):
        answer = subprocess.run([f"{build}/Tools/kelvanectl", "--daemon", socket, "call", selector],
                                capture_output=True, text=True, check=False)
        return answer.stdout.strip()

    environment = dict(os.environ, QT_LINUX_ACCESSIBILITY_ALWAYS_ON="1", QT_ACCESSIBILITY="1")
    host = subprocess.Popen([f"{build}/kelvane-settings", "--pane", f"{build}/Bundles/Kelvane.prefPane",
                             "--daemon", socket, "--authorization", "granted"], env=environment)
    try:
        check_status_tab(Window(pyatspi), daemon_state)
    finally:
        host.terminate()
        host.wait(10)
        daemon.terminate()
        daemon.wait(10)
    if host.returncode != 0:
        raise SystemExit(f"kelvane-settings ended with {host.returncode}")
    print("all found and done")


def main():
    build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else "build/dev")
    if os.environ.get("KELVANE_ON_DISPLAY"):
        with tempfile.TemporaryDirectory() as folder:
            os.environ["XDG_CONFIG_HOME"] = folder
            run(build, folder)
        return
    reader, writer = os.pipe()
    screen = subprocess.Popen(["Xvfb", "-displayfd", str(writer), "-screen", "0", "1280x960x24", "-nolisten", "tcp"],
                              pass_fds=[writer], stderr=subprocess.DEVNULL)
    os.close(writer)
    display = os.read(reader, 16).decode().strip()
    try:
        environment = dict(os.environ, DISPLAY=f":{display}", KELVANE_ON_DISPLAY="1")
        status = subprocess.call(["dbus-run-session", "--", sys.executable, os.path.abspath(__file__), build],
                                 env=environment)
    finally:
        screen.terminate()
    sys.exit(status)


if __name__ == "__main__":
    main()
