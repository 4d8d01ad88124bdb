"""Models what must be in the backup, from the state of the disk when each backup was completed."""

import os
import sys

from torture import tree
from torture.world import DAY

MARGIN = 3600  # In seconds: a version this close to its expiry may stay or go.


class Version:
    """One state of one path, and the snapshots that hold it."""

    def __init__(self, entry):
        self.entry, self.snapshots, self.replaced = entry, [], None


class Model:
    def __init__(self, world):
        self.world = world
        self.roots = [world.home] + world.volumes
        self.away = set()
        self.excluded = set()
        self.newest = {}  # By path: the version in the last completed backup that includes the path.
        self.past = {}  # By path: versions that were replaced or deleted, oldest first.
        self.known = set()  # Ids of snapshots.
        self.trees = {}  # By snapshot: the files on the disk when it was made.
        self.unread = set()  # Paths that the daemon's user may not read, and links that restic cannot save.
        # Such links at the time of the last backup, which contains them without a usable target.
        self.lossy = set()
        self.damaged = set()  # Paths that the repository can no longer restore.

    def expected(self):
        """Returns, by absolute path in bytes, everything that a backup made now must contain."""
        found, self.unread = {}, set()
        for root in self.roots:
            if root in self.away:
                continue
            base = os.fsencode(root)
            for name, entry in tree.entries_below(base).items():
                found[os.path.join(base, name) if name else base] = entry
        found = {path: entry for path, entry in found.items()
                 if entry.kind not in ("pipe", "socket", "device") and not self.is_excluded(path)}
        self.unread = {path for path, entry in found.items() if entry.kind == "link" and not is_text(entry.content)}
        if self.world.owner:
            self.unread |= unreadable(found, self.world.owner)
        return {path: entry for path, entry in found.items() if not is_below(path, self.unread)}

    def is_excluded(self, path):
        return is_below(path, self.excluded)

    def is_away(self, path):
        return is_below(path, {os.fsencode(root) for root in self.away})

    def note_disk(self):
        """Notes, after edits, since when the newest saved versions are no longer on the disk."""
        now = self.expected()
        for path, version in self.newest.items():
            if version.replaced is None and not self.is_away(path):
                if path not in now or not tree.same_version(now[path], version.entry):
                    version.replaced = self.world.now()
        return now

    def differs(self, now):
        """Returns the paths on the disk whose current state is not in the last completed backup."""
        return {path for path, entry in now.items()
                if path not in self.newest or not tree.same_version(entry, self.newest[path].entry)
                or self.newest[path].snapshots == []}

    def is_only_time(self, path, now):
        """Whether only the time of a folder differs, which any change in it updates."""
        version, entry = self.newest.get(path), now[path]
        return bool(version) and entry.kind == "folder" and tree.same_version(
            entry._replace(mtime=version.entry.mtime), version.entry)

    def note_backup(self, snapshots):
        """Notes a completed backup: `snapshots` are new in the repository."""
        now = self.note_disk()
        self.lossy = {path for path in self.unread if os.path.islink(path)} | set(filter(self.is_away, self.lossy))
        self.known.update(snapshots)
        for identifier in snapshots:
            self.trees[identifier] = now
        for path, entry in now.items():
            version = self.newest.get(path)
            if version is None or not tree.same_version(version.entry, entry):
                if version is not None:
                    self.past.setdefault(path, []).append(version)
                version = self.newest[path] = Version(entry)
            version.entry, version.replaced = entry, None  # Hard links may have changed.
            version.snapshots += snapshots
        for path in [path for path in self.newest if path not in now and not self.is_away(path)]:
            self.past.setdefault(path, []).append(self.newest.pop(path))
        return now

    def is_required(self, version):
        return version.replaced is None or self.world.now() < version.replaced + self.world.keep_days * DAY - MARGIN

    def required(self):
        """Yields every version that must still be in the backup, as pairs of path and version."""
        for path, version in self.newest.items():
            if self.is_required(version):
                yield path, version
        for path, versions in self.past.items():
            for version in versions:
                if self.is_required(version):
                    yield path, version

    def last_known(self, path):
        """Returns the newest version of a path, deleted or not."""
        return self.newest.get(path) or (self.past.get(path) or [None])[-1]

    def deleted(self):
        """Returns the paths in the backup that are no longer on the disk, with the version to restore."""
        return {path: versions[-1] for path, versions in self.past.items()
                if path not in self.newest and self.is_required(versions[-1])}

    def below(self, root):
        """Returns the newest state of a folder or file: entries by path relative to it."""
        return relative({path: version.entry for path, version in self.newest.items()}, root)


def relative(entries, root):
    root = os.fsencode(root)
    return {path[len(root) + 1:]: entry for path, entry in entries.items()
            if path == root or path.startswith(root + b"/")}


def is_text(target):
    """Whether a link's target is certainly unchanged: restic replaces bytes that are not UTF-8 by U+FFFD."""
    try:
        return "\ufffd" not in target.decode()
    except UnicodeDecodeError:
        return False


def is_below(path, roots):
    if not roots:
        return False
    while path != b"/" and path:
        if path in roots:
            return True
        path = os.path.dirname(path)
    return False


def unreadable(entries, owner):
    """Returns the paths that a process of `owner` cannot read, by trying it in such a process."""
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.close(reader)
            os.setgroups([])
            os.setresgid(owner, owner, owner)
            os.setresuid(owner, owner, owner)
            with open(writer, "wb") as out:
                for path, entry in entries.items():
                    if not _can_read(path, entry):
                        out.write(path + b"\0")
            status = 0
        finally:
            sys.stdout.flush()
            os._exit(status)
    os.close(writer)
    with open(reader, "rb") as file:
        text = file.read()
    if os.waitpid(child, 0)[1] != 0:
        raise RuntimeError("the process that tries to read has failed")
    return set(text.split(b"\0")[:-1])


def _can_read(path, entry):
    try:
        if entry.kind == "folder":
            os.listdir(path)
            return os.access(path, os.X_OK)
        if entry.kind == "file":
            os.close(os.open(path, os.O_RDONLY))
        else:
            os.readlink(path)
        return True
    except OSError:
        return False
