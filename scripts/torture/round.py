"""One round: a machine, a home, some events, and at the end everything restored and compared."""

import os
import random

from torture import checks, edits, events, repository, tree
from torture.checks import Outcome, complain
from torture.files import Maker
from torture.model import Model, relative
from torture.tree import shown
from torture.world import Finding, World

TRAITS = ["names", "links", "odd-targets", "hardlinks", "sparse", "attributes", "acls", "modes", "owners", "times", "far-times",
          "special", "chunks", "long"]
USER = 1234  # The daemon's user when it does not run as root.


class Round:
    def __init__(self, workshop, folder, seed, kinds, skipped=()):
        self.seed, self.kinds, self.skipped = seed, kinds, set(skipped)
        chance = self.chance("plan")
        # Most homes have most traits; each trait is absent from some homes, since it may hide a
        # fault.
        self.traits = {trait for trait in TRAITS if chance.random() < 0.6 and trait in kinds}
        is_root = os.geteuid() == 0
        owner = USER if is_root and chance.random() < 0.35 and "user" in kinds else 0
        self.machine = {"has_volume": is_root and chance.random() < 0.4 and "disks" in kinds,
                        "home_is_disk": is_root and chance.random() < 0.2 and "disks" in kinds,
                        "small_disks": is_root and chance.random() < 0.3 and "full" in kinds,
                        "on_memory": chance.random() < 0.9 and "memory" in kinds}
        self.count = chance.choice([5, 20, 40, 80])
        self.world = World(workshop, folder, owner=owner, keep_days=chance.choice([30, 30, 7]), traits=self.traits)
        self.plan = events.plan(chance, kinds, is_root)
        self.is_damaged = False
        self.step = 0

    def chance(self, what):
        return random.Random(f"{self.seed} {what}")

    def note(self, text):
        self.world.account.append(text)

    def maker(self, root):
        return Maker(os.fsencode(root), self.traits, self.world.owner)

    def run(self):
        world, chance = self.world, self.chance("home")
        world.prepare(**self.machine)
        self.model = Model(world)
        for root in self.model.roots:
            self.maker(root).populate(chance, self.count if root == world.home else 5)
        self.note(f"{'root' if not world.owner else 'user'}, keep {world.keep_days} days, "
                  f"{len(self.model.expected())} items, {' '.join(sorted(self.traits))}")
        world.start()
        self.back_up()
        for self.step, kind in enumerate(self.plan):
            if self.step in self.skipped:
                continue
            self.one_event(kind, self.chance(f"event {self.step}"))
            world.check_alive()
            if self.is_damaged:
                return self.end_damaged()
        self.finish()

    def one_event(self, kind, chance):
        self.note(f"{self.step}: {kind}")
        self.world.settle()
        self.absorb()  # What the daemon has saved without a request since.
        if kind in edits.ALL:
            self.change(chance, [kind] * chance.randint(1, 8))
            if chance.random() < 0.5:
                self.back_up()
        else:
            (events.ALL | events.DAMAGES)[kind](self, chance)

    def change(self, chance, kinds=None):
        """Edits the home folder while no backup is running."""
        if self.world.daemon:
            self.pause()
        kinds = kinds or [chance.choice(self.edit_kinds()) for _ in range(chance.randint(1, 6))]
        for kind in kinds:
            roots = [root for root in self.model.roots if root not in self.model.away]
            if roots:
                self.note("   " + edits.ALL[kind](self.maker(chance.choice(roots)), chance))
        self.model.note_disk()
        if self.world.daemon and chance.random() < 0.25:
            checks.becomes_not_green(self.world, self.model)

    def edit_kinds(self):
        return [kind for kind in edits.ALL if kind in self.kinds] or list(edits.ALL)

    def pause(self):
        code, _, errors = self.world.ctl("mode", "paused", "1440")
        if code != 0:
            complain("rule 8", f"`mode paused` ends with {code}: {errors.strip()}")

    def order_backup(self):
        code, _, errors = self.world.ctl("backup", "now", "--wait")
        if self.confirm_emptied():
            code, _, errors = self.world.ctl("backup", "now", "--wait")
        self.world.check_alive()
        self.world.settle()
        return code, errors.strip()

    def back_up(self, look_closely=True):
        """Makes a backup that must succeed."""
        code, errors = self.order_backup()
        self.take_backup(code, errors)
        if look_closely and not self.is_damaged:
            checks.bullets(self.world, self.model, True)
        self.note("   backed up")

    def confirm_emptied(self):
        """Tells the daemon, as a user would, that a folder emptied by edits is not absent."""
        emptied = [str(root) for root in self.model.roots if root not in self.model.away and not os.listdir(root)]
        alerts = (self.world.status() or {}).get("alerts", []) if emptied else []
        meant = [alert["id"] for alert in alerts if alert["id"].startswith("disk_away-")
                 and any(alert["title"].startswith(root + " is empty") for root in emptied)
                 and any(action.startswith("keep-disk") for action in alert["actions"])]
        for identifier in meant:
            self.world.ctl("alert", identifier, "forget-disk")
        return bool(meant)

    def take_backup(self, code, errors):
        new = self.new_snapshots()
        now = self.model.expected()
        if code == 3 and self.model.unread:
            checks.must_say(self.world, "files that cannot be read")
        elif code != 0:
            complain("rule 8", f"`backup now --wait` ends with {code}, without a reason: {errors}; "
                               f"{self.world.status()}")
        changed = self.model.differs(now)
        if not new and changed:
            complain("rule 2", "`backup now --wait` ends with 0, and there is no new snapshot",
                     [shown(path) for path in changed])
        self.model.note_backup(new)

    def failed_backup(self, what):
        """Makes a backup that may fail and must then report it."""
        code, errors = self.order_backup()
        self.note(f"   backup with {what}: {code} {errors[:120]}")
        if code != 0:
            checks.must_say(self.world, what)
        if code == 0 or (self.model.unread and self.new_snapshots()):  # Of the files that could be read.
            self.take_backup(code, errors)
        return code

    def absorb(self):
        """Notes what the daemon has saved by itself: the disk has not changed in the meantime."""
        if new := self.new_snapshots():
            self.model.note_backup(new)

    def new_snapshots(self):
        return [each for each in self.world.snapshots() if each not in self.model.known]

    # Restores

    def restore_all(self, allowed=frozenset()):
        for root in self.model.roots:
            if os.fsencode(root) not in self.model.newest:
                continue
            to = self.world.new_output(self.chance(f"output {root.name}"))
            outcome = Outcome(self.world, [os.fsencode(root)], to)
            self.world.check_alive()
            wanted = self.model.below(root)
            found = checks.restored(self.world, self.model, outcome, wanted, to / root.name, root, allowed=allowed)
            if outcome.code == 0:
                checks.nothing_else(self.model, found, wanted, root)

    def restore_deleted(self, chance, count=3):
        deleted = self.model.deleted()
        for path in chance.sample(sorted(deleted), min(count, len(deleted))):
            if deleted[path].entry.kind == "folder":
                continue
            to = self.world.new_output()
            outcome = Outcome(self.world, [path], to)
            self.note(f"   restored what was deleted: {shown(path)[-80:]}: {outcome.code}")
            checks.restored(self.world, self.model, outcome, {b"": deleted[path].entry},
                            os.path.join(os.fsencode(to), os.path.basename(path)), path)

    def finish(self):
        world, chance = self.world, self.chance("finish")
        if not world.daemon:
            world.start()
        events.mend(self)
        self.back_up()
        self.restore_all()
        self.restore_deleted(chance)
        checks.no_leftovers(world)
        world.stop()  # It may still have tagged a snapshot, which changes its id.
        checks.kept(world, self.model)
        checks.repository_is_whole(world)

    def end_damaged(self):
        """After damage to the repository, every restorable file must be restored and every other file reported."""
        lost = self.lost_in_newest()
        self.note(f"   restic itself cannot give {len(lost)} items")
        # An unreadable file is restored from an earlier snapshot, which may be the damaged one.
        try:
            self.restore_all(allowed=lost | self.model.unread)
        except Finding as finding:
            if not str(finding).startswith("rule 1: could have been restored"):
                raise
            # Of a blob that was stored again restic reads either copy, until a verification drops
            # the damaged one.
            self.note("   not everything restorable was restored before a verification")
            repository.verify(self, lost)
            lost = self.lost_in_newest()
            self.restore_all(allowed=lost | self.model.unread)
        self.world.check_alive()
        repository.verify(self, lost)
        self.world.stop()

    def lost_in_newest(self):
        """Returns the paths of the newest state that restic cannot restore, or reports as failed."""
        lost = {path: version for path, version in self.model.newest.items()}
        now, trees = self.model.expected(), self.model.trees
        for identifier in self.world.snapshots():
            # A snapshot that the model does not know was made by the daemon to store damaged data
            # again.
            held = [path for path, version in lost.items()
                    if identifier not in trees or identifier in version.snapshots[-1:]]
            if not held:
                continue
            folder, run = self.world.fetch(identifier)
            for root in self.model.roots:
                found = tree.entries_below(os.fsencode(folder) + os.fsencode(root))
                for name, entry in relative(trees.get(identifier, now), root).items():
                    path = os.path.join(os.fsencode(root), name) if name else os.fsencode(root)
                    other = found.get(name)
                    # restic fails every blob of a truncated pack, so it is unknown which files
                    # are complete.
                    is_failed = b"ignoring error for " + path + b": " in run.stderr
                    if path in held and other and not is_failed \
                            and (other.kind, other.content) == (entry.kind, entry.content):
                        del lost[path]
        return set(lost)
