"""Makes files of every kind at random, and changes them."""

import os
import shutil
import socket
import stat
import struct

from torture import names

KIB = 1024
CHUNKS = [512 * KIB - 1, 512 * KIB, 512 * KIB + 1, KIB * KIB, 8 * KIB * KIB - 1, 8 * KIB * KIB, 8 * KIB * KIB + 1]
MOST_LARGE = 20 * KIB * KIB  # bytes of large files made in one round
SECOND = 10**9
TIMES = [0, 1, -1, -5 * 10**8, 2**31 - 1, 2**31, 2**32, 7258118400]  # In seconds; the last is the year 2200.
FAR_TIMES = [9223372036, 9223372037, 12 * 10**9]  # Near the end of 64 bits of nanoseconds, and beyond.
MODES = [0o644, 0o600, 0o755, 0o400, 0o664, 0o444, 0o4755, 0o2755, 0o6711, 0o1644, 0o000, 0o777, 0o200]
FOLDER_MODES = [0o755, 0o700, 0o500, 0o1777, 0o2775, 0o555, 0o711]
USERS = [0, 1, 1000, 65534, 12345]
ACL_VERSION = 2
NOBODY = 0xFFFFFFFF
CAPABILITY = bytes.fromhex("0100000200040000000000000000000000000000")  # Allows binding low ports.


def acl(chance, own=6):
    user = chance.choice([1000, 12345])
    rows = [(1, own, NOBODY), (2, chance.randrange(8), user), (4, chance.randrange(8), NOBODY), (16, 7, NOBODY),
            (32, chance.randrange(8), NOBODY)]
    return struct.pack("<I", ACL_VERSION) + b"".join(struct.pack("<HHI", *row) for row in rows)


class Maker:
    """Creates and changes files below `root`; `traits` lists the permitted kinds, `owner` owns most of them."""

    def __init__(self, root, traits, owner):
        self.root, self.traits, self.owner = root, traits, owner
        self.large = 0

    def all(self):
        """Returns the paths of files and folders below `root`, always in the same order."""
        found, waiting = [], [self.root]
        while waiting:
            folder = waiting.pop(0)
            for name in sorted(os.listdir(folder)):
                path = os.path.join(folder, name)
                found.append(path)
                if not os.path.islink(path) and os.path.isdir(path):
                    waiting.append(path)
        return found

    def folders(self):
        return [self.root] + [path for path in self.all() if os.path.isdir(path) and not os.path.islink(path)]

    def name(self, chance):
        return names.odd(chance) if "names" in self.traits and chance.random() < 0.4 else names.plain(chance)

    def new_path(self, chance):
        for _ in range(20):
            path = os.path.join(chance.choice(self.folders()), self.name(chance))
            if len(path) < 1500 and not os.path.lexists(path):
                return path
        return os.path.join(self.root, b"new-%d" % chance.getrandbits(60))

    def content(self, chance):
        if "chunks" in self.traits and chance.random() < 0.06 and self.large < MOST_LARGE:
            size = chance.choice(CHUNKS)
            self.large += size
        else:
            size = chance.choice([0, 1, 300, 4096, 4097, 20000, chance.randrange(70000)])
        if chance.random() < 0.15:
            return bytes(size)
        return chance.randbytes(size) if size < 10**6 or chance.random() < 0.8 else chance.randbytes(1000) * (size // 1000)

    def sparse(self, chance, path):
        size = chance.choice([1 << 20, 3 * (1 << 20) + 17, 12 << 20])
        with open(path, "wb") as file:
            for _ in range(chance.randrange(3)):
                file.seek(chance.randrange(size))
                file.write(chance.randbytes(chance.choice([1, 5000])))
            file.truncate(size)

    def make(self, chance, path):
        """Creates an item of any kind at `path`."""
        kind = chance.random()
        if kind < 0.1 and "links" in self.traits:
            # None leads outside this round's folders: a daemon that follows links must not reach
            # the machine's own.
            target = chance.choice([b"nowhere", b".", b"..", self.root, self.root + b"/x", b"new\nline", b"x" * 4000, b"../" + names.plain(chance)])
            if "odd-targets" in self.traits and chance.random() < 0.3:
                target = chance.choice([b"\xff\n", path, b"../" + names.odd(chance)])
            os.symlink(target, path)
        elif kind < 0.16 and "hardlinks" in self.traits and (old := self.regular(chance)):
            os.link(old, path, follow_symlinks=False)
            return path
        elif kind < 0.20 and "sparse" in self.traits:
            self.sparse(chance, path)
        elif kind < 0.24 and "special" in self.traits:
            self.special(chance, path)
        else:
            with open(path, "wb") as file:
                file.write(self.content(chance))
        self.adorn(chance, path)
        return path

    def special(self, chance, path):
        kind = chance.randrange(3)
        if kind == 0:
            os.mkfifo(path)
        elif kind == 1 and os.geteuid() == 0:
            os.mknod(path, stat.S_IFCHR | 0o600, os.makedev(1, 3))
        else:
            folder = os.open(os.path.dirname(path), os.O_RDONLY)  # The address of a socket is limited.
            with socket.socket(socket.AF_UNIX) as end:
                end.bind(f"/proc/self/fd/{folder}/".encode() + os.path.basename(path)[:60])
            os.close(folder)
            made = os.path.join(os.path.dirname(path), os.path.basename(path)[:60])
            if made != path:
                os.rename(made, path)

    def regular(self, chance):
        files = [path for path in self.all() if os.path.isfile(path) and not os.path.islink(path)]
        return chance.choice(files) if files else None

    def adorn(self, chance, path):
        """Sets owner, mode, attributes and times."""
        is_link, is_folder = os.path.islink(path), os.path.isdir(path)
        if os.geteuid() == 0:
            owner = chance.choice(USERS) if "owners" in self.traits and chance.random() < 0.2 else self.owner
            os.chown(path, owner, owner, follow_symlinks=False)
        if not is_link:
            mode = 0o755 if is_folder else 0o644
            if "modes" in self.traits and chance.random() < 0.4:
                mode = chance.choice(FOLDER_MODES if is_folder else MODES)
            os.chmod(path, mode)
            self.attribute(chance, path, is_folder)
        seconds = chance.randrange(10**9, 17 * 10**8)
        if "times" in self.traits and chance.random() < 0.15:
            seconds = chance.choice(TIMES)
        if "far-times" in self.traits and chance.random() < 0.1:
            seconds = chance.choice(FAR_TIMES)
            os.utime(path, (seconds, seconds), follow_symlinks=False)
        else:
            moment = seconds * SECOND + chance.randrange(SECOND)
            os.utime(path, ns=(moment, moment), follow_symlinks=False)

    def attribute(self, chance, path, is_folder):
        wanted = []
        if "attributes" in self.traits and chance.random() < 0.2:
            wanted += [("user.a", chance.randbytes(chance.choice([0, 1, 200]))), ("user.caf\u00e9", b"\xff\0\n")]
            if os.geteuid() == 0:
                wanted.append(("trusted.t", chance.randbytes(3)))
                if not is_folder:
                    wanted.append(("security.capability", CAPABILITY))
        if "acls" in self.traits and chance.random() < 0.15:
            wanted.append(("system.posix_acl_access", acl(chance)))
            if is_folder:
                wanted.append(("system.posix_acl_default", acl(chance, 7)))
        for name, value in wanted:
            try:
                os.setxattr(path, name, value, follow_symlinks=False)
            except OSError:
                # A file system may not support every attribute; the actual ones are compared, not
                # the intended ones.
                pass

    def folder(self, chance):
        path = self.new_path(chance)
        os.mkdir(path)
        self.adorn(chance, path)
        return path

    def populate(self, chance, count):
        for _ in range(max(2, count // 6)):
            self.folder(chance)
        if "names" in self.traits:
            folder = chance.choice(self.folders())
            for name in names.colliding(chance):
                self.make_if_free(chance, os.path.join(folder, name))
                if chance.random() < 0.3:
                    other = os.path.join(chance.choice(self.folders()), name + b" folder")
                    if len(other) < 1500 and not os.path.lexists(other):
                        os.mkdir(other)
                        self.make(chance, os.path.join(other, b"inside"))
        if "long" in self.traits and chance.random() < 0.3:
            self.deep(chance)
        for _ in range(count):
            self.make(chance, self.new_path(chance))
        self.age_folders(chance)

    def make_if_free(self, chance, path):
        if not os.path.lexists(path):
            self.make(chance, path)

    def deep(self, chance):
        path = self.root
        while len(path) < 2300:
            path = os.path.join(path, b"d" * chance.randint(100, 240))
            os.makedirs(path, exist_ok=True)
        self.make_if_free(chance, os.path.join(path, b"deep"))

    def age_folders(self, chance):
        """Sets the times of folders, which creating files has changed to the current time."""
        for path in self.folders()[1:]:
            moment = chance.randrange(10**18, 17 * 10**17)
            os.utime(path, ns=(moment, moment))
        if os.geteuid() == 0 and self.owner:
            for path in self.all():
                if os.lstat(path).st_uid == 0 and "owners" not in self.traits:
                    os.chown(path, self.owner, self.owner, follow_symlinks=False)


def remove(path):
    if os.path.isdir(path) and not os.path.islink(path):
        shutil.rmtree(path)
    else:
        os.unlink(path)
