"""Invariants after a step. Each check raises a Finding, or returns its result."""

import json
import os
import re

from torture import tree
from torture.model import is_below, relative
from torture.tree import shown
from torture.world import Finding, clear

GREEN, YELLOW = 2, 3
IDLE = 8
FINISHED, INCOMPLETE, RUNNING = 1, 2, 50  # Status codes of a restore job; from the last one up it has not ended.
MOST = 8  # differences in one message
DISK = b"/Volumes/System"
ESCAPE = re.compile("\ufffd[89A-F][0-9A-F]")
ESCAPES = re.compile("(\ufffd[89A-F][0-9A-F])")


def complain(rule, text, items=()):
    items = [item if len(item) < 300 else item[:200] + "…" + item[-80:] for item in items]
    more = f"; and {len(items) - MOST} more" if len(items) > MOST else ""
    raise Finding(f"{rule}: {text}{': ' if items else ''}{'; '.join(items[:MOST])}{more}")


# Nodes


def path_of(text):
    """Returns the bytes on the disk for a path in the protocol's form."""
    path = b"".join(bytes.fromhex(part[1:]) if ESCAPE.fullmatch(part) else part.encode("utf-8", "surrogateescape")
                    for part in ESCAPES.split(text))
    return path[len(DISK):] if path.startswith(DISK + b"/") else path


def text_of(path):
    """Returns the path as messages write it: on one line, with control characters escaped."""
    def escaped(octets):
        return "".join(f"\ufffd{octet:02X}" for octet in octets)
    text = path.decode("utf-8", "surrogateescape")
    text = re.sub("\ufffd(?=[89A-F][0-9A-F])", escaped("\ufffd".encode()), text)
    text = re.sub("[\udc80-\udcff]", lambda found: escaped([ord(found[0]) - 0xDC00]), text)
    return re.sub("[\0-\x1f\x7f]", lambda found: f"\\x{ord(found[0]):02x}", text)


def nodes(world, root):
    code, out, errors = world.ctl("--json", "children", "--depth", "2048", str(root))
    if code != 0:
        complain("rule 8", f"`children {root}` ends with {code}: {errors.strip()}")
    return {path_of(node["path"]): node for node in json.loads(out)}


def bullets(world, model, everything_saved):
    """A file shown as backed up is saved, and a saved file is shown as backed up."""
    now = model.expected()
    for root in model.roots:
        if root in model.away:
            continue
        listed = nodes(world, root)
        here = {path: entry for path, entry in now.items() if is_below(path, {os.fsencode(root)})}
        changed = model.differs(here)
        false = [shown(path) for path, node in listed.items() if node["backupColor"] == GREEN
                 and not node["isDirectory"] and not is_below(path, model.unread)
                 and (path in changed or path not in here or path in model.damaged)]
        if false:
            complain("rule 2", "green, and not in the backup as it is", false)
        if everything_saved:
            absent = [shown(path) for path in here if path not in listed and path != os.fsencode(root)]
            if absent:
                complain("rule 5", f"{len(absent)} of {len(here)} are not listed", absent)
            other = [f"{shown(path)} has {listed[path]['backupColor']}" for path, entry in here.items()
                     if path in listed and entry.kind != "folder" and listed[path]["backupColor"] != GREEN
                     and path not in model.damaged]
            if other:
                complain("rule 2", "in the backup, and not green", other)


def becomes_not_green(world, model):
    """A changed file is shown as pending once the daemon has noticed the change."""
    def all_true():
        try:
            bullets(world, model, False)
            return True
        except Finding as finding:
            problem.append(finding)
            return False
    problem = []
    try:
        world.wait(all_true, "", 20)
    except Finding:
        raise problem[-1] from None


# Alerts


def is_said(world):
    """Whether the status reports a problem: an alert, or a state other than idle."""
    status = world.status()
    if status is None:
        complain("rule 8", "no status is to be had")
    return bool(status.get("alerts")) or ("alerts" not in status and status["serviceState"] != IDLE)


def must_say(world, what):
    world.wait(lambda: is_said(world), f"rule 8: `status` tells of {what}", 20)


# Restores


def order_restore(world, path, to):
    code, out, errors = world.ctl("--json", "restore", "--to", str(to), str(path))
    if code != 0:
        complain("rule 8", f"`restore` ends with {code}: {errors.strip()}")
    return json.loads(out)[0]["job"]


def job_status(world, job):
    code, out, _ = world.ctl("call", "getRestoreJobStatus:", str(job))
    return int(out) if code == 0 else RUNNING


def has_ended(world, job):
    return job_status(world, job) < RUNNING


class Outcome:
    """The result of `restore --wait`: its exit status, and the reported failures."""

    def __init__(self, world, paths, to=None, seconds=90):
        words = ["--json", "restore", "--wait"] + (["--to", str(to)] if to else []) + ["--"]
        self.code, out, self.errors = world.ctl(*words, *[os.fsdecode(path) for path in paths], seconds=seconds)
        try:
            self.jobs = json.loads(out)
        except ValueError:
            self.jobs = []
        self.failures = [line for job in self.jobs for line in job.get("failures", [])]
        self.text = "\n".join(self.failures) + self.errors

    @classmethod
    def of_job(cls, world, job):
        """Returns the outcome of a job that has ended."""
        outcome = cls.__new__(cls)
        outcome.code = {FINISHED: 0, INCOMPLETE: 3}.get(job_status(world, job))
        _, out, outcome.errors = world.ctl("call", "stringValueForProfileKey:", f"restoreJobFailures.{job}")
        outcome.text = json.loads(out) if out.startswith('"') else out
        outcome.jobs, outcome.failures = [], outcome.text.splitlines()
        return outcome

    def names(self, path, root):
        """Whether the failures name `path`, a folder above it, or everything that was requested."""
        if any(" more" in line for line in self.failures):
            return True
        while len(path) >= len(root):
            if text_of(path) in self.text:
                return True
            path = os.path.dirname(path)
        return False


def restored(world, model, outcome, wanted, place, root, *, allowed=frozenset(), fresh=True):
    """Checks that `wanted`, entries by relative path, are at `place`; `root` is their original place. Those in `allowed`
    (absolute paths) may be missing if they are reported, but must not be restored with wrong contents."""
    place, root = os.fsencode(place), os.fsencode(root)
    allowed = allowed | {path for path in model.lossy if is_below(path, {root})}
    if outcome.code is None:
        complain("rule 8", f"the restore does not end: {world.status()}")
    if outcome.code not in (0, 3):
        complain("rule 8", f"`restore` ends with {outcome.code}: {outcome.errors.strip()}")
    found = tree.entries_below(place)
    if fresh:
        clear(os.fsdecode(os.path.dirname(place)))
    owner = world.owner or None
    bad, unnamed, needless = [], [], []
    for name, entry in wanted.items():
        if entry.kind == "folder" and fresh is False:
            words = [] if name in found and found[name].kind == "folder" else ["no folder"]
        else:
            words = tree.differences(entry, found.get(name), times=True, owner=owner, blocks=fresh)
        if not words:
            continue
        path = os.path.join(root, name) if name else root
        line = f"{shown(path)}: {', '.join(words)}"
        bad.append(line)
        if outcome.code == 3 and not outcome.names(path, root):
            unnamed.append(line)
        if not is_below(path, allowed) and not any(is_below(each, {path}) for each in allowed):
            needless.append(line)
    if outcome.code == 0 and bad:
        complain("rule 3", f"status 0, but {len(bad)} of {len(wanted)} differ", bad)
    if unnamed:
        complain("rule 3", "differs, and is not named in the failures", unnamed + [f"named: {outcome.text[:600]}"])
    if needless:
        complain("rule 1", "could have been restored, and was not", needless + [f"named: {outcome.text[:600]}"])
    if outcome.code == 3 and not allowed:
        complain("rule 3", "status 3, although everything came", outcome.failures or [outcome.errors])
    if fresh and outcome.code == 0:
        linked(wanted, found)
    return found


def everything(wanted, root):
    """Returns the absolute paths of the wanted entries."""
    root = os.fsencode(root)
    return {os.path.join(root, name) if name else root for name in wanted}


def linked(wanted, found):
    groups = tree.link_groups({name: entry for name, entry in wanted.items() if entry.kind == "file"})
    have = tree.link_groups(found)
    apart = [" and ".join(shown(name) for name in sorted(group)) for group in groups
             if not any(group <= each for each in have)]
    if apart:
        complain("rule 3", "hard links have come apart", apart)


def nothing_else(model, found, wanted, root):
    """A folder is restored as it last was, without files that had been deleted before."""
    extra = []
    for name, entry in found.items():
        path = os.path.join(os.fsencode(root), name)
        if name not in wanted and entry.kind not in ("pipe", "socket", "device") and not is_below(path, model.unread):
            extra.append(f"{shown(path)}, a {entry.kind}")
    if extra:
        complain("rule 3", "restored, and was not in the folder when it was last backed up", extra)


# The repository itself


def kept(world, model):
    """Rule 1: each version that must be kept is in an existing snapshot and can be restored."""
    there = world.snapshots().keys()
    world.account.append(f"   {len(model.known - there)} of {len(model.known)} snapshots are forgotten")
    lost, needed = [], set()
    for path, version in model.required():
        alive = [each for each in version.snapshots if each in there]
        if not alive:
            lost.append(f"{shown(path)} ({version.entry.kind}, {version.entry.size} bytes, in {len(version.snapshots)} "
                        "snapshots that no longer exist)")
        elif version.entry.kind == "file":
            needed.add(alive[-1])
    if lost:
        complain("rule 1", f"{len(lost)} versions were forgotten too early", lost)
    for identifier in sorted(needed):
        gives(world, model, identifier)


def gives(world, model, identifier):
    """Compares what restic restores of a snapshot with the disk at the time it was made."""
    folder, run = world.fetch(identifier)
    wrong = []
    for root in model.roots:
        base = os.fsencode(root)
        wanted = relative(model.trees[identifier], base)
        found = tree.entries_below(os.fsencode(folder) + base)
        for name, entry in wanted.items():
            other = found.get(name)
            if other is None or (entry.kind, entry.content) != (other.kind, other.content):
                wrong.append(f"{shown(os.path.join(base, name))}: {entry.kind} {entry.content[:40]!r}, found "
                             f"{other and (other.kind, other.content[:40])}")
    clear(folder)
    if wrong:
        complain("rule 1", f"snapshot {identifier[:8]} does not give what was backed up "
                           f"(restic: {run.stderr.decode('utf-8', 'replace')[-300:]})", wrong)


def repository_is_whole(world):
    run = world.run_restic("check")
    if run.returncode != 0:
        complain("rule 1", "restic check", [(run.stdout + run.stderr).decode("utf-8", "replace")[-1500:]])


def no_leftovers(world):
    left = []
    for folder, folders, _ in os.walk(os.fsencode(world.folder)):
        left += [shown(os.path.join(folder, name)) for name in folders if name.startswith(b".kelvane-restore-")]
    if left:
        complain("rule 3", "staging folders are left", left)
