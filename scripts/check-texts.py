#!/usr/bin/python3
"""Compares what the pane's code looks up with what its bundle has.

Every text with its English fall-back must stand in the string table, byte for byte, and every key that is read of
the information dictionary must be there. A look-up whose key is no literal has to be named below, with the table
of the code that holds its keys; one that is not is a failure, too, so that nothing escapes the comparison.
"""

import ast
import plistlib
import re
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path

root = Path(__file__).resolve().parent.parent
folders = ("PreferencePane", "Support")
string_table = root / "PreferencePane/Resources/en.lproj/Localizable.strings"
information = root / "PreferencePane/Plugin/Info.plist.in"

# The sources of keys that a file looks up by variable. None for a file that only passes on
# literals of others.
tables = {
    "PreferencePane/AuthorizationView.cpp": ("problemTexts",),
    "PreferencePane/AuthorizationView.h": (),
    "PreferencePane/Backup/BackupTabController.cpp": (),
    "PreferencePane/Backup/BackupTabRules.cpp": ("contextTexts",),
    "PreferencePane/Backup/ExcludeTableModel.cpp": ("columnNames",),
    "PreferencePane/Browser/BrowserPaths.cpp": ("notBackedUp", "stateTexts"),
    "PreferencePane/Help/HelpController.cpp": (),
    "PreferencePane/PaneControllerDaemon.cpp": (),  # Names of markets are in a table of their own.
    "PreferencePane/PaneView.cpp": ("tabTitles",),
    "PreferencePane/Restore/RestoreTabController.cpp": (),
    "PreferencePane/Restore/RestoreTabLocation.cpp": (),
    "PreferencePane/Restore/RestoreTabRules.cpp": (
        "noSelection", "unavailable", "multipleFiles", "restoreOriginalAlert", "restoreDesktopAlert"),
    "PreferencePane/Services/FormTexts.cpp": (),
    "PreferencePane/Services/PaneServices.h": (),
    "PreferencePane/Status/StatusTabController.cpp": (),
    "PreferencePane/Status/StatusTabController.h": (),
    "PreferencePane/Status/StatusTabTools.cpp": (),
    "PreferencePane/Status/StatusTexts.h": ("statusTexts",),
    "Support/FileSizeFormatter.cpp": ("unitKeys",),
    "Support/ServiceStates.cpp": ("stateNames",),
}

literal = r'"(?:[^"\\\n]|\\.)*"'
place = r'"(\d+)"'


class Source:
    """A file without its comments; each string literal is replaced by its number in quotes."""

    def __init__(self, path):
        self.literals = []
        tokens = re.compile(rf"(?P<text>{literal}(?:\s*{literal})*)|'(?:[^'\\]|\\.)'|//[^\n]*|/\*.*?\*/", re.S)
        self.code = tokens.sub(self.numbered, path.read_text("utf-8"))

    def numbered(self, token):
        if token["text"] is None:
            return " "
        parts = re.findall(literal, token["text"])
        self.literals.append("".join(ast.literal_eval(part) for part in parts))
        return f'"{len(self.literals) - 1}"'

    def texts(self, code):
        return [self.literals[int(number)] for number in re.findall(place, code)]

    def arguments(self, function):
        """Returns for each call its texts, or its code when the first argument is not a text."""
        for call in re.finditer(rf'\b(?:{function})\(\s*({place}(?:\s*,\s*{place})?|[^\s")][^;]*?[,)])', self.code):
            yield self.texts(call[1]) if call[1].startswith('"') else call[1]

    def rows(self, table):
        """Returns key and text of each row of a table; a row with a single text uses it for both."""
        found = re.search(rf"\b{table}\b(?:\[\])?\s*=([^;]*);", self.code)
        rows = (re.findall(r"\{([^{}]*)\}", found[1]) or [found[1]]) if found else []
        for row in rows:
            texts = self.texts(row)
            is_list = len(rows) == 1 and re.fullmatch(rf"[\s,]*(?:{place}[\s,]*)+", row)
            yield from ((text, text) for text in texts) if is_list else [(texts[0], texts[-1])]


def looked_up(name, source):
    """Yields pairs of key and English text, and each failure as a single text."""
    for arguments in source.arguments("q?text|localizedString"):
        if isinstance(arguments, list):
            yield arguments[0], arguments[-1]
        elif name not in tables and not arguments.startswith("StatusText::"):
            yield f"{name} looks up {arguments.strip(',')}: say in scripts/check-texts.py where its keys stand"
    for table in tables.get(name, ()):
        rows = list(source.rows(table))
        yield from rows or [f"{name} has no table {table}"]


def form_texts(path):
    for property in ElementTree.parse(path).iter("property"):
        text = property.find("string")
        if text is not None and text.text and text.get("notr") != "true":
            yield text.text, text.text


def problems():
    texts = plistlib.loads(string_table.read_bytes())
    keys = [key.text for key in ElementTree.parse(string_table).iter("key")]
    yield from (f"the string table has {key!r} twice" for key in sorted(set(keys)) if keys.count(key) > 1)
    known = plistlib.loads(information.read_bytes())
    files = sorted(path for folder in folders for path in (root / folder).rglob("*"))
    yield from (f"{name} is not a file any more" for name in tables if not (root / name).is_file())
    compared = 0
    for path in files:
        name = str(path.relative_to(root))
        found = []
        if path.suffix == ".ui":
            found = form_texts(path)
        elif path.suffix in (".cpp", ".h"):
            source = Source(path)
            found = looked_up(name, source)
            for arguments in source.arguments("information|openURLUsingKey"):
                if isinstance(arguments, list) and arguments[0] not in known:
                    yield f"{name}: the information dictionary has no {arguments[0]!r}"
        for pair in found:
            compared += 1
            if isinstance(pair, str):
                yield pair
            elif texts.get(pair[0]) != pair[1]:
                yield f"{name}: {pair[0]!r} is {pair[1]!r} and in the string table {texts.get(pair[0])!r}"
    if compared < 50:
        yield f"only {compared} texts were found to compare: the look-ups are written in another way now"


failures = list(problems())
sys.exit("\n".join(failures) or 0)
