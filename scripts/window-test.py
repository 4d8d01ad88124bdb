#!/usr/bin/python3
"""Operates the window like a screen reader: real programs, found, read and used only through accessibility.

    scripts/window-test.py [--build FOLDER] [PART...]

Parts are status, backup, restore, give_back, help and life; without one all are run. They have a virtual display
and a session bus of their own, and each a home; each prints what it saw, and fails when something is not found.

scripts/setup.sh --window-tests installs what it needs.
"""

import argparse
import importlib
import pathlib
import sys
import time
import traceback

sys.path.insert(0, str(pathlib.Path(__file__).resolve().parent / "window"))

import desktop  # noqa: E402

PARTS = ("status", "backup", "restore", "give_back", "help", "life")


def passes(part, build):
    print(f"== {part}", flush=True)
    started = time.monotonic()
    try:
        importlib.import_module(part + "_part").run(build)
    except Exception as reason:  # Any error: the other parts still run.
        traceback.print_exc(file=sys.stdout)
        print(f"== {part} FAILED: {reason}", flush=True)
        return False
    print(f"== {part}: all found and done in {time.monotonic() - started:.0f} s", flush=True)
    return True


def main():
    parser = argparse.ArgumentParser(description="Works the window as a screen reader does.")
    parser.add_argument("--build", default="build/dev", metavar="FOLDER")
    parser.add_argument("parts", nargs="*", metavar="PART", help=", ".join(PARTS))
    arguments = parser.parse_args()
    unknown = set(arguments.parts) - set(PARTS)
    if unknown:
        parser.error(f"no such part: {', '.join(sorted(unknown))}")
    if not desktop.is_private():
        sys.exit(desktop.run_again_privately())
    from programs import Build
    build = Build(arguments.build)
    results = [passes(part, build) for part in arguments.parts or PARTS]
    sys.exit(0 if all(results) else 1)


if __name__ == "__main__":
    main()
