#!/usr/bin/python3
"""Compares the options in the --help of a program with those that its man page describes.

    scripts/check-man-page.py PROGRAM PAGE
"""

import re
import subprocess
import sys
from pathlib import Path

program, page = sys.argv[1:]
help_text = subprocess.run([program, "--help"], capture_output=True, text=True, check=True).stdout
in_help = set(re.findall(r"(?<![\w-])--([a-z][a-z-]*)", help_text))
entries = "\n".join(re.findall(r"^\.It .*", Path(page).read_text("utf-8"), re.M))
in_page = set(re.findall(r"\bFl -([a-z][a-z-]*)", entries))
faults = [f"{page} does not describe --{name}" for name in sorted(in_help - in_page)]
faults += [f"--help does not name --{name}, which {page} describes" for name in sorted(in_page - in_help)]
if not in_help:
    faults.append("--help names no option")
sys.exit("\n".join(faults) or 0)
