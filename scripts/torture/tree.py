"""Reads folder trees and describes the differences between two of them."""

import collections
import hashlib
import os
import stat

Entry = collections.namedtuple("Entry", "kind mode uid gid size mtime content attributes inode blocks")

SPECIAL = {stat.S_IFIFO, stat.S_IFSOCK, stat.S_IFCHR, stat.S_IFBLK}
SLACK = 64  # Blocks of 512 bytes that a sparse file may have in addition.
_KINDS = {stat.S_IFREG: "file", stat.S_IFDIR: "folder", stat.S_IFLNK: "link", stat.S_IFIFO: "pipe",
          stat.S_IFSOCK: "socket", stat.S_IFCHR: "device", stat.S_IFBLK: "device"}


def shown(path):
    return os.fsencode(path).decode("utf-8", "backslashreplace").replace("\n", "\\n")


def _digest(path):
    digest = hashlib.blake2b(digest_size=16)
    with open(path, "rb") as file:
        while part := file.read(1 << 20):
            digest.update(part)
    return digest.digest()


def entry_at(path):
    status = os.lstat(path)
    kind = stat.S_IFMT(status.st_mode)
    content, attributes = b"", ()
    if kind == stat.S_IFREG:
        content = _digest(path)
    elif kind == stat.S_IFLNK:
        content = os.readlink(path)
    if kind in (stat.S_IFREG, stat.S_IFDIR):
        attributes = tuple(sorted((name, os.getxattr(path, name, follow_symlinks=False))
                                  for name in os.listxattr(path, follow_symlinks=False)))
    size = status.st_size if kind == stat.S_IFREG else 0
    return Entry(_KINDS[kind], stat.S_IMODE(status.st_mode), status.st_uid, status.st_gid, size, status.st_mtime_ns,
                 content, attributes, (status.st_dev, status.st_ino) if status.st_nlink > 1 else None,
                 status.st_blocks)


def entries_below(root):
    """Returns the entries below `root`, a path of bytes, by relative path; `root` itself is b""."""
    found = {}
    if not os.path.lexists(root):
        return found
    waiting = [b""]
    while waiting:
        name = waiting.pop()
        path = os.path.join(root, name) if name else root
        entry = found[name] = entry_at(path)
        if entry.kind == "folder":
            waiting += [os.path.join(name, each) if name else each for each in os.listdir(path)]
    return found


def same_version(one, other):
    """Whether two items are equal in everything that a backup must preserve."""
    return (one.kind == other.kind and one.content == other.content and one.mode == other.mode
            and one.mtime == other.mtime and one.attributes == other.attributes
            and (one.uid, one.gid) == (other.uid, other.gid))


def differences(wanted, found, *, times=True, owner=None, blocks=True):
    """Returns descriptions. `owner` is the user who restored, None for root: only root restores other owners and
    some attributes."""
    if found is None:
        return ["missing"]
    if wanted.kind != found.kind:
        return [f"a {found.kind} instead of a {wanted.kind}"]
    words = []
    if wanted.content != found.content:
        words.append(f"other bytes ({wanted.size} and {found.size})" if wanted.kind == "file" else "another target")
    mode, owners = wanted.mode, (wanted.uid, wanted.gid)
    attributes, others = wanted.attributes, found.attributes
    if owner is not None:
        attributes, others = ([each for each in list_ if each[0].startswith(("user.", "system."))]
                              for list_ in (attributes, others))
        if owners != (owner, owner):
            mode = _without_owner(mode, wanted.uid == owner, wanted.gid == owner)
            owners = (found.uid, found.gid)
            # ACLs are not compared: their mask is the group bits of the mode, which a restore restricts when the group
            # differs.
            attributes, others = ([each for each in list_ if each[0] != "system.posix_acl_access"]
                                  for list_ in (attributes, others))
    if wanted.kind != "link" and mode != found.mode:
        words.append(f"mode {found.mode:o} instead of {mode:o}")
    if owners != (found.uid, found.gid):
        words.append(f"owner {found.uid}:{found.gid} instead of {owners[0]}:{owners[1]}")
    if times and wanted.mtime != found.mtime:
        words.append(f"time {found.mtime} instead of {wanted.mtime}")
    if list(attributes) != list(others):
        words.append(f"attributes {_names(others)} instead of {_names(attributes)}")
    if blocks and wanted.kind == "file" and found.blocks > wanted.blocks + SLACK \
            and wanted.blocks * 512 < wanted.size // 2:
        words.append(f"{found.blocks} blocks instead of {wanted.blocks}: no longer sparse")
    return words


def _without_owner(mode, has_user, has_group):
    """Former owners and group members may now count as group or others, and must not gain access."""
    user, group, others = mode >> 6 & 7, mode >> 3 & 7, mode & 7
    if not has_group:
        group = others = group & others
    if not has_user:
        group, others = group & user, others & user
    return (mode & (stat.S_ISVTX | stat.S_IRWXU)) | group << 3 | others


def _names(attributes):
    return {name: value.hex()[:120] for name, value in attributes}


def link_groups(found):
    """Returns sets of relative paths that are hard links to one file."""
    groups = collections.defaultdict(set)
    for name, entry in found.items():
        if entry.inode and entry.kind != "folder":
            groups[entry.inode].add(name)
    return {frozenset(group) for group in groups.values() if len(group) > 1}
