"""A window as a screen reader sees it: every control is found, read and operated through AT-SPI."""

import time

import pyatspi
from gi.repository import GLib

TIMEOUT = 20  # Seconds to wait for a widget to appear.
PACE = 0.05  # Seconds between two polls.


class Missing(Exception):
    """An expected control or window is missing."""


def wait_for(what, condition, timeout=TIMEOUT):
    """Returns the condition's first result that counts as true."""
    deadline = time.monotonic() + timeout
    while True:
        result = condition()
        if result:
            return result
        if time.monotonic() > deadline:
            raise Missing(f"not found in {timeout} s: {what}")
        time.sleep(PACE)


def nodes_below(root):
    pending = [root]
    while pending:
        node = pending.pop()
        yield node
        try:
            pending.extend(child for child in reversed([child for child in node]) if child is not None)
        except GLib.Error:  # It disappeared while it was read.
            continue


def is_in(node, state):
    return node.getState().contains(state)


def text_of(node):
    return node.queryText().getText(0, -1)


class Window:
    """All windows of the only program whose name contains `program`."""

    def __init__(self, program="kelvane"):
        self.program = program
        self.root = wait_for("the program's accessibility", self._application)

    def is_running(self):
        return self._application() is not None

    def _application(self):
        for application in pyatspi.Registry.getDesktop(0):
            if application is not None and self.program in application.name.lower():
                return application
        return None

    def find_now(self, test, root=None):
        """Returns the first visible node that passes the test, or None. A hidden node hides its children."""
        pending = [root or self.root]
        while pending:
            node = pending.pop()
            try:
                if node.getRole() != pyatspi.ROLE_APPLICATION and not is_in(node, pyatspi.STATE_SHOWING):
                    continue
                if test(node):
                    return node
                pending.extend(child for child in reversed([child for child in node]) if child is not None)
            # It disappeared while it was read, or lacks the interface.
            except (GLib.Error, NotImplementedError):
                continue
        return None

    def find(self, what, test, root=None):
        return wait_for(what, lambda: self.find_now(test, root))

    def gone(self, what, test):
        wait_for(f"the end of {what}", lambda: self.find_now(test) is None)

    def named(self, role, name, root=None):
        return self.find(f'{role} "{name}"', is_called(role, name), root)

    def described(self, description):
        """Finds a value label by its description; its accessible name is the value."""
        return self.find(f'a value described as "{description}"', lambda node: node.description == description)

    def labelled(self, role, label):
        def test(node):
            return node.getRoleName() == role and any(
                relation.getTarget(index).name == label
                for relation in node.getRelationSet()
                if relation.getRelationType() == pyatspi.RELATION_LABELLED_BY
                for index in range(relation.getNTargets()))

        return self.find(f'{role} labelled "{label}"', test)

    def button(self, name):
        return self.named("push button", name)

    def press(self, name):
        """Presses a button as soon as it is enabled."""
        button = self.find(f'the button "{name}", enabled',
                           lambda node: node.getRoleName() in ("push button", "toggle button") and node.name == name
                           and is_in(node, pyatspi.STATE_ENABLED))
        do_action(button)

    def write(self, field, text):
        if not field.queryEditableText().setTextContents(text):
            raise Missing(f'"{field.name}" takes no text')

    def choose(self, combo, name):
        """Opens a pop-up menu and clicks one of its items."""
        do_action(combo)
        self.click(self.named("list item", name, combo))
        wait_for(f'"{name}" in the pop-up', lambda: combo.name == name)

    def select_tab(self, name):
        self.click(self.named("page tab", name))

    def click(self, node):
        pyatspi.Registry.generateMouseEvent(*middle_of(node), "b1c")

    def row(self, title, root=None):
        """Finds a row of a browser by its title, alone or followed by its state."""
        return self.find(f'the row "{title}"', is_row(title), root)

    def walk(self, names, first_column=0):
        """Selects a path in the columns of the visible browser."""
        for number, name in enumerate(names, first_column):
            wait_for(f"column {number}", lambda wanted=number: len(self.columns()) > wanted)
            do_action(wait_for(f'the row "{name}"', lambda: self._row_of_column(number, is_row(name))))

    def _row_of_column(self, number, test):
        """Also finds a row that is scrolled out of view."""
        return next((row for row in self.columns()[number] if row is not None and test(row)), None)

    def columns(self):
        """Returns the columns of the visible browser from the left."""
        lists = []
        browser = self.find_now(lambda node: node.getRoleName() == "split pane")
        self.find_now(lambda node: node.getRoleName() == "list" and lists.append(node), browser)
        return sorted(lists, key=lambda column: column.queryComponent().getExtents(pyatspi.DESKTOP_COORDS).x)


def is_called(role, name):
    return lambda node: node.getRoleName() == role and node.name == name


def is_row(title):
    return lambda node: node.getRoleName() == "list item" and (node.name == title
                                                               or node.name.startswith(title + ", "))


def do_action(node):
    """Performs the node's default action: presses a button, or adds a row to the selection."""
    node.queryAction().doAction(0)


def middle_of(node):
    """Returns its position on the screen once it no longer moves."""
    seen = []

    def place():
        extents = node.queryComponent().getExtents(pyatspi.DESKTOP_COORDS)
        seen.append((extents.x, extents.y, extents.width, extents.height))
        return extents.width > 0 and extents.height > 0 and len(seen) > 2 and seen[-1] == seen[-2] == seen[-3]

    wait_for(f'the place of "{node.name}"', place)
    x, y, width, height = seen[-1]
    return x + width // 2, y + height // 2
