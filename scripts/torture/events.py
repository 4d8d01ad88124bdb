"""Events on a machine, its clock, its disks and its repository. Each takes the round and a random generator."""

import os
import subprocess
import time

from torture import checks, damage, repository
from torture.checks import Outcome, complain
from torture.edits import ALL as EDITS
from torture.restores import restores
from torture.tree import shown
from torture.world import DAY, Finding

WRONG_CLOCKS = [7200, -7200, 40 * DAY, -400 * DAY, 10 * 365 * DAY, 60]
STEPS = (3, 7)


def plan(chance, kinds, is_root):
    """Returns a random sequence of edits and events; damage to the repository, if any, is the last."""
    pool = [kind for kind in EDITS if kind in kinds] * 2
    pool += [kind for kind in ALL if kind in kinds and (is_root or kind not in NEED_ROOT)] * 2
    last = [kind for kind in DAMAGES if kind in kinds]
    steps = [chance.choice(pool) for _ in range(chance.randint(*STEPS))] if pool else []
    if last and chance.random() < (0.2 if pool else 1):
        steps.append(chance.choice(last))
    return steps


# Time


def clock(round_, chance):
    """The clock is wrong for a while, during which backups are made, and then corrected."""
    world = round_.world
    seconds = chance.choice(WRONG_CLOCKS + [-world.clock() + 5 * DAY])
    was_stopped = chance.random() < 0.3
    if was_stopped:
        world.stop()
    world.set_clock_wrong(seconds)
    round_.note(f"   the clock is wrong by {seconds / 3600:.1f} h{', since a start' if was_stopped else ''}")
    if was_stopped:
        world.start()
    for _ in range(chance.randint(1, 2)):
        round_.change(chance)
        round_.back_up()
    world.set_clock_wrong(0)
    round_.note("   the clock is right again")
    for _ in range(chance.randint(0, 2)):
        round_.change(chance)
        round_.back_up()
    if chance.random() < 0.5:
        lose_state(round_, chance)
    if chance.random() < 0.5:
        checks.kept(world, round_.model)


def days(round_, chance):
    """Days pass while the machine is suspended, is off or has a paused daemon."""
    world, count = round_.world, chance.choice([1, 5, 20, 32, 33, 70])
    is_off = chance.random() < 0.5
    if is_off:
        world.stop()
    else:
        round_.pause()
    if chance.random() < 0.5:
        round_.change(chance)
    world.pass_days(count)
    round_.note(f"   {count} days pass{', switched off' if is_off else ''}")
    if is_off:
        world.start()
    if chance.random() < 0.7:
        round_.change(chance, ["deletions"] * chance.randint(1, 10))
    round_.back_up()
    checks.kept(world, round_.model)


# Disks


def disks(round_, chance):
    """A disk is unmounted, the machine is used without it, and it is mounted again."""
    world, model = round_.world, round_.model
    if not world.disks:
        return restart(round_, chance)
    root, aside = chance.choice(world.disks), world.folder / "aside"
    is_off = chance.random() < 0.4
    if is_off:
        world.stop()
    model.note_disk()
    world.move_mount(root, aside)
    model.away.add(root)
    round_.note(f"   the disk of {root.name} goes{', switched off' if is_off else ''}")
    if is_off:
        world.start()
    for _ in range(chance.randint(1, 2)):
        if chance.random() < 0.4:
            world.pass_days(chance.choice([1, 33]))
            round_.note("   days pass")
        round_.change(chance)
        round_.failed_backup("an unmounted disk")
    checks.kept(world, model)
    to = world.new_output(chance)
    outcome = Outcome(world, [os.fsencode(root)], to)
    checks.restored(world, model, outcome, model.below(root), to / root.name, root)
    if chance.random() < 0.3:
        lose_state(round_, chance)
    world.move_mount(aside, root)
    model.away.discard(root)
    round_.note("   the disk is back")
    round_.back_up()


def full(round_, chance):
    """A disk is full for a while: this is reported, and no part of the backup is lost."""
    world, model = round_.world, round_.model
    if not world.small or chance.random() < 0.3:
        return full_target(round_, chance)
    folder = chance.choice(world.small)
    round_.change(chance)
    left = chance.choice([0, 0, 1000, 100000])
    ballast = world.fill(folder, left)
    round_.note(f"   the disk of {folder.name} is full but for {left} bytes")
    if chance.random() < 0.3:
        world.stop()
        world.start()
    round_.failed_backup(f"a full disk of {folder.name}")
    if chance.random() < 0.5:
        to = world.new_output()
        wanted = model.below(world.home)
        outcome = Outcome(world, [os.fsencode(world.home)], to)
        if outcome.code:
            checks.must_say(world, "a restore that a full disk has stopped")
        checks.restored(world, model, outcome, wanted, to / world.home.name, world.home,
                        allowed=checks.everything(wanted, world.home) if outcome.code else frozenset())
    ballast.unlink()
    world.wait(lambda: round_.order_backup()[0] in (0, 3), "a backup succeeds when there is space again")
    round_.absorb()
    round_.back_up()
    checks.kept(world, model)


def full_target(round_, chance):
    """Files that do not fit are reported; restored files are complete."""
    world, model = round_.world, round_.model
    if not world.is_root:
        return
    round_.back_up()
    to = world.new_output()
    world.mount_memory(to, chance.choice([1 << 14, 1 << 17, 1 << 20]))
    wanted = model.below(world.home)
    job = checks.order_restore(world, world.home, to)
    try:
        world.wait(lambda: checks.has_ended(world, job), "", 20)
    except Finding:  # It waits, reports that, and continues when there is space.
        checks.must_say(world, "a restore that waits for space")
        subprocess.run(["mount", "-o", "remount,size=1G", to], check=True)
        world.wait(lambda: checks.has_ended(world, job), "a restore continues when there is space", 90)
    outcome = Outcome.of_job(world, job)
    round_.note(f"   restored to a small disk: {outcome.code}")
    checks.restored(world, model, outcome, wanted, to / world.home.name, world.home,
                    allowed=checks.everything(wanted, world.home) if outcome.code else frozenset())


def races(round_, chance):
    """Files change during a backup; the next backup saves their state at that time."""
    world = round_.world
    before = [chance.choice(["edits", "creations", "adornments"]) for _ in range(40)]
    world.ctl("backup", "now")
    maker = round_.maker(world.home)
    if world.home not in round_.model.away:
        for kind in before:
            EDITS[kind](maker, chance)
    round_.note("   40 changes during a backup")
    world.settle()
    round_.model.known.update(round_.new_snapshots())
    round_.model.note_disk()
    round_.back_up()


# Processes


def restart(round_, chance):
    round_.world.stop()
    if chance.random() < 0.5:
        round_.change(chance)
    round_.world.start()
    round_.note("   stopped and started")


def automatic(round_, chance):
    """A change is noticed and backed up without a request."""
    world, model = round_.world, round_.model
    world.ctl("mode", "enabled")
    world.stop()
    round_.change(chance, [chance.choice(round_.edit_kinds())])
    now = model.expected()
    world.pass_days(2)  # The interval between two backups is over then.
    changed = {path for path in model.differs(now) if not model.is_only_time(path, now)} | (set(model.newest) - set(now))
    world.start()
    if changed and not model.unread:
        world.wait(round_.new_snapshots,
                   "rule 1: what has changed is backed up by itself: " + ", ".join(map(shown, sorted(changed)[:3])), 30)
    round_.back_up()


def kill(round_, chance):
    world = round_.world
    victims = chance.choice([("daemon", "restic"), ("daemon",), ("restic",)])
    is_backup = chance.random() < 0.6
    if is_backup:
        round_.change(chance)
        world.ctl("backup", "now")
    else:
        job = checks.order_restore(world, world.home, world.new_output())
    time.sleep(chance.choice([0, 0.02, 0.1, 0.3, 0.6, 1.0]) * chance.random())
    count = world.kill(victims)
    round_.note(f"   {' and '.join(victims)} killed during a {'backup' if is_backup else 'restore'}, {count} restic")
    if world.daemon is None:
        world.start()
    if is_backup:
        world.wait(lambda: round_.order_backup()[0] in (0, 3), "a backup succeeds after a kill")
        round_.back_up()
    else:
        world.wait(lambda: checks.has_ended(world, job), "a restore ends after a kill", 90)
        outcome = Outcome.of_job(world, job)
        checks.restored(world, round_.model, outcome, round_.model.below(world.home),
                        world.out / str(world.outputs) / world.home.name, world.home)


def lose_state(round_, chance):
    """All state files of the daemon are lost; it starts again with the repository alone."""
    del chance
    world = round_.world
    world.stop()
    for path in sorted(world.state.rglob("*")):
        if path.is_file() and "index" in path.name:
            path.unlink()
    world.start()
    round_.note("   the index is lost")


def state(round_, chance):
    """One of the daemon's own files is damaged while it is off."""
    world, model = round_.world, round_.model
    if chance.random() < 0.5:
        excluded = [path for path in sorted(model.newest) if model.newest[path].entry.kind == "folder"
                    and path != os.fsencode(world.home) and _is_plain(path) and not model.is_away(path)
                    and os.path.lexists(path)]
        if excluded:
            exclude(round_, chance.choice(excluded))
            round_.back_up()
    world.stop()
    files = sorted(path for path in world.state.rglob("*") if path.is_file() and not path.name.endswith(".lock"))
    if not files:
        return world.start()
    path = chance.choice(files)
    how = damage.spoil(path, chance)
    if world.owner and path.exists():
        os.chown(path, world.owner, world.owner)
    round_.note(f"   {path.name} {how}")
    world.start()
    if "state.plist" in path.name and model.excluded:
        settings_hold(round_)
    else:
        round_.failed_backup(f"{path.name} {how}")


def settings_hold(round_):
    """Either the exclusions are preserved, or nothing is backed up and the status gives the reason."""
    world, model = round_.world, round_.model
    code, _ = round_.order_backup()
    for identifier in round_.new_snapshots():
        names = world.run_restic("ls", world.snapshots()[identifier]).stdout
        if leaked := [shown(path) for path in model.excluded if path + b"\n" in names]:
            complain("rule 8", "excluded, and backed up after the settings were damaged", leaked)
    if code == 0:
        return round_.absorb()
    checks.must_say(world, "settings that cannot be read")
    for path in sorted(model.excluded):
        world.ctl("exclude", "add", "--", os.fsdecode(path))
    world.ctl("mode", "enabled")


def exclude(round_, path):
    code, _, errors = round_.world.ctl("exclude", "add", "--", os.fsdecode(path))
    if code != 0:
        complain("rule 8", f"`exclude add {shown(path)}` ends with {code}: {errors.strip()}")
    round_.model.excluded.add(path)
    round_.note(f"   excluded: {shown(path)[-60:]}")


def _is_plain(path):
    return path.isascii() and path.decode().isprintable()


def rules(round_, chance):
    """An excluded file leaves the backup, and is backed up again after the exclusion is removed."""
    model, world = round_.model, round_.world
    if model.excluded and chance.random() < 0.5:
        path = sorted(model.excluded)[0]
        world.ctl("exclude", "remove", "--", os.fsdecode(path))
        model.excluded.discard(path)
        round_.note(f"   no longer excluded: {shown(path)[-60:]}")
        return round_.back_up()
    paths = [path for path in sorted(model.newest) if path != os.fsencode(world.home) and not model.is_away(path)
             and path not in {os.fsencode(root) for root in model.roots} and os.path.lexists(path)]
    if paths:
        exclude(round_, chance.choice(paths))
        round_.back_up()


def environment(round_, chance):
    """The session has environment variables for restic, which the daemon must not pass on."""
    world = round_.world
    choices = {"RESTIC_PASSWORD": "wrong", "RESTIC_PASSWORD_COMMAND": "false", "RESTIC_REPOSITORY_FILE": "/dev/null",
               "RESTIC_REPOSITORY": "/nowhere", "RESTIC_KEY_HINT": "0000", "RESTIC_COMPRESSION": "max",
               "RESTIC_PROGRESS_FPS": "0.01", "RESTIC_PACK_SIZE": "9999", "RESTIC_CACHE_DIR": "/dev/null"}
    name = chance.choice(sorted(choices))
    world.stop()
    world.extra_environment = {name: choices[name]}
    world.start()
    round_.note(f"   {name}={choices[name]}")
    round_.change(chance)
    round_.back_up()
    world.stop()
    world.extra_environment = {}
    world.start()


def no_restic(round_, chance):
    """The program is missing for a moment: this is reported, and ends when it is back."""
    world = round_.world
    program = world.folder / "bin/restic"
    program.rename(world.folder / "bin/away")
    round_.change(chance)
    round_.failed_backup("restic missing")
    (world.folder / "bin/away").rename(program)
    round_.back_up()


def mend(round_):
    """Removes all obstacles before the end of a round."""
    round_.world.set_clock_wrong(0)


ALL = {"clock": clock, "days": days, "disks": disks, "full": full, "races": races, "restarts": restart, "automatic": automatic, "kills": kill,
       "state": state, "rules": rules, "environment": environment, "no-restic": no_restic, "locks": repository.lock,
       "moments": repository.moment, "restores": restores, "lost-index": lose_state}
DAMAGES = {"packs": repository.packs}
NEED_ROOT = {"disks", "full"}
