"""Edits by a user, one at a time. Each function returns a description of the edit."""

import os
import shutil

from torture import names
from torture.files import MODES, remove
from torture.tree import shown


def _short(path, maker):
    text = shown(os.path.relpath(path, maker.root))
    return text if len(text) < 60 else text[:40] + "…" + text[-15:]


def edit(maker, chance):
    path = maker.regular(chance)
    if path is None:
        return create(maker, chance)
    status = os.stat(path)
    how = chance.choice(["rewritten", "appended", "truncated", "written into", "replaced", "same time"])
    if how == "replaced":
        other = path[:-1] + b"~" if len(os.path.basename(path)) > 1 else path + b"~"
        if os.path.lexists(other):
            return create(maker, chance)
        with open(other, "wb") as file:
            file.write(maker.content(chance))
        maker.adorn(chance, other)
        os.rename(other, path)
    elif how == "same time":
        data = chance.randbytes(status.st_size) if status.st_size < 1 << 24 else b"other"
        with open(path, "wb") as file:
            file.write(data)
        os.utime(path, ns=(status.st_atime_ns, status.st_mtime_ns))
    else:
        with open(path, {"rewritten": "wb", "appended": "ab"}.get(how, "r+b")) as file:
            if how == "truncated":
                file.truncate(chance.randrange(status.st_size + 1))
            else:
                if how == "written into":
                    file.seek(chance.randrange(status.st_size + 1))
                file.write(chance.randbytes(chance.choice([1, 100, 5000])))
    return f"{how}: {_short(path, maker)}"


def adorn(maker, chance):
    paths = maker.all()
    if not paths:
        return create(maker, chance)
    path = chance.choice(paths)
    how = chance.choice(["mode", "all", "owner"])
    if how == "mode" and not os.path.islink(path):
        os.chmod(path, chance.choice(MODES) | (0o700 if os.path.isdir(path) else 0))
    elif how == "owner" and os.geteuid() == 0 and "owners" in maker.traits:
        os.chown(path, 1000, 1000, follow_symlinks=False)
    else:
        maker.adorn(chance, path)
    return f"other {how}: {_short(path, maker)}"


def create(maker, chance):
    if chance.random() < 0.2:
        path = maker.folder(chance)
        for _ in range(chance.randrange(4)):
            maker.make_if_free(chance, os.path.join(path, names.plain(chance)))
    else:
        path = maker.make(chance, maker.new_path(chance))
    return f"made: {_short(path, maker)}"


def rename(maker, chance):
    paths = maker.all()
    if not paths:
        return create(maker, chance)
    path, to = chance.choice(paths), maker.new_path(chance)
    if to.startswith(path + b"/"):
        return create(maker, chance)
    if chance.random() < 0.2:
        other = chance.choice(paths)
        if other != path and not any(one.startswith(each + b"/") for one in (path, other, to) for each in (path, other)):
            os.rename(path, to)
            os.rename(other, path)
            os.rename(to, other)
            return f"exchanged: {_short(path, maker)} and {_short(other, maker)}"
    os.rename(path, to)
    return f"renamed: {_short(path, maker)} to {_short(to, maker)}"


def delete(maker, chance):
    paths = maker.all()
    if not paths:
        return create(maker, chance)
    path = chance.choice(paths)
    remove(path)
    return f"deleted: {_short(path, maker)}"


def exchange_kind(maker, chance):
    paths = maker.all()
    if not paths:
        return create(maker, chance)
    path = chance.choice(paths)
    was_folder = os.path.isdir(path) and not os.path.islink(path)
    to = chance.choice(["file", "folder", "link"])
    if to == "link" and was_folder and chance.random() < 0.5:
        kept = maker.new_path(chance)
        if kept.startswith(path + b"/"):
            kept = os.path.join(maker.root, b"kept-%d" % chance.getrandbits(60))
        shutil.move(path, kept)
        os.symlink(kept, path)
        return f"moved, and a link in its place: {_short(path, maker)}"
    remove(path)
    if to == "folder":
        os.mkdir(path)
        maker.adorn(chance, path)
        maker.make(chance, os.path.join(path, names.plain(chance)))
    elif to == "link":
        os.symlink(chance.choice([b"elsewhere", maker.root, b"."]), path)
        maker.adorn(chance, path)
    else:
        with open(path, "wb") as file:
            file.write(maker.content(chance))
        maker.adorn(chance, path)
    return f"now a {to}: {_short(path, maker)}"


ALL = {"edits": edit, "adornments": adorn, "creations": create, "renames": rename, "deletions": delete,
       "kinds": exchange_kind}
