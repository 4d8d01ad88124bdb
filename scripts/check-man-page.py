#!/usr/bin/python3
"""Compares the commands and options in the --help of a program with those that its man page describes.

    scripts/check-man-page.py PROGRAM PAGE
"""

import re
import subprocess
import sys
from pathlib import Path

program, page = sys.argv[1:]


def help_pages(*words):
    """Yields the help of the program and of all its commands, each with the words before --help."""
    text = subprocess.run([program, *words, "--help"], capture_output=True, text=True, check=True).stdout
    yield words, text
    for names in re.findall(r"^(?:Commands|Actions):\n((?:  .*\n)+)", text, re.M):
        for name in re.findall(r"^  (\w[\w-]*)", names, re.M):
            yield from help_pages(*words, name)


pages = list(help_pages())
options = {name for _, text in pages for name in re.findall(r"(?<![\w-])--([a-z][a-z-]*)", text)}
with_actions = {words[:-1] for words, _ in pages if words}
commands = {" ".join(words) for words, _ in pages if words and words not in with_actions}
entries = re.findall(r"^\.It (.*)", Path(page).read_text("utf-8"), re.M)
described_options = set(re.findall(r"\bFl -([a-z][a-z-]*)", "\n".join(entries)))
described_commands = {" ".join(re.findall(r"\bCm (\S+)", entry)) for entry in entries if entry.startswith("Cm ")}
faults = [f"{page} does not describe --{name}" for name in sorted(options - described_options)]
faults += [f"{page} does not describe the command {name}" for name in sorted(commands - described_commands)]
faults += [f"--help does not name --{name}, which {page} describes" for name in sorted(described_options - options)]
faults += [f"--help does not name the command {name}, which {page} describes"
           for name in sorted(described_commands - commands)]
if not options:
    faults.append("--help lists no options")
sys.exit("\n".join(faults) or 0)
