#!/usr/bin/env python3
"""Folders to back up and to compare, for demo.sh and kill-test.py.

    scripts/trees.py make DIR COUNT        so many files, of all sorts of sizes, modes, times and names
    scripts/trees.py change DIR KEPT       changes some and deletes some, in KEPT, a copy, as well
    scripts/trees.py compare WANTED FOUND  bytes, modes and times; prints what differs, ends with 1 if anything does
"""

import os
import pathlib
import random
import shutil
import stat
import sys

ODD_NAMES = ["x [y]*?.txt", "back\\slash", "**", "new\nline", "quote\"'", "-dash", "ünïcödé", " blank "]
MODES = [0o644, 0o600, 0o755, 0o400, 0o664]


def make(folder, count, seed=1):
    folder = pathlib.Path(folder)
    chance = random.Random(seed)
    for number in range(count):
        name = ODD_NAMES[number] if number < len(ODD_NAMES) else f"file {number}"
        file = folder / f"folder {number % 37}" / f"deep {number % 5}" / name
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_bytes(chance.randbytes(chance.choice([0, 1, 300, 4096, 20000])))
        file.chmod(chance.choice(MODES))
        moment = chance.randrange(10**18, 17 * 10**17)
        os.utime(file, ns=(moment, moment))
    (folder / "empty folder").mkdir()
    (folder / "locked").mkdir(mode=0o500)
    os.symlink("folder 1", folder / "link to a folder")
    os.symlink("nowhere", folder / "link to nothing")


def files_in(folder):
    return sorted(path for path in pathlib.Path(folder).rglob("*") if path.is_file() and not path.is_symlink())


def change(folder, kept):
    """Deletes the files from the copy as well, since a folder is restored as it last was."""
    folder, kept = pathlib.Path(folder), pathlib.Path(kept)
    for number, file in enumerate(files_in(folder)):
        if number % 10 == 3:
            copy = kept / file.relative_to(folder)
            mode = stat.S_IMODE(file.stat().st_mode)
            file.chmod(0o600)
            file.write_bytes(b"changed " + file.read_bytes()[::-1])
            file.chmod(mode)
            copy.unlink()
            shutil.copy2(file, copy)
        elif number % 10 == 7:
            file.unlink()
            (kept / file.relative_to(folder)).unlink()


def describe(path):
    status = path.lstat()
    what = [stat.S_IFMT(status.st_mode), stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid]
    if path.is_symlink():
        return what + [status.st_mtime_ns, os.readlink(path)]
    if path.is_dir():
        return what  # Its time is that of the last change in it.
    return what + [status.st_mtime_ns, path.read_bytes()]


def differences(wanted, found):
    wanted, found = pathlib.Path(wanted), pathlib.Path(found)
    names = {path.relative_to(wanted) for path in wanted.rglob("*")}
    others = {path.relative_to(found) for path in found.rglob("*")}
    for name in sorted(names | others):
        if name not in others:
            yield f"missing: {name}"
        elif name not in names:
            yield f"unexpected: {name}"
        elif describe(wanted / name) != describe(found / name):
            yield f"different: {name}"


def main():
    command, first, second = sys.argv[1:4]
    if command == "make":
        make(first, int(second))
    elif command == "change":
        change(first, second)
    else:
        found = list(differences(first, second))
        print("\n".join(found[:20]) or f"the same: {len(files_in(first))} files, bytes, owners, modes and times")
        sys.exit(1 if found else 0)


if __name__ == "__main__":
    main()
