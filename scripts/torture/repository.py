"""Operations of others on the repository, and damage to it. Each takes the round and a random generator."""

import datetime
import os
import shutil

from torture import checks, damage, quickrepository
from torture.checks import complain
from torture.world import HOST


# Other users of the repository


def lock(round_, chance):
    world = round_.world
    age, exclusive = chance.choice([0, 300, 1500]), chance.random() < 0.6
    host = chance.choice([HOST, "elsewhere"])
    pid = 4194303 if host == HOST else 812
    when = datetime.datetime.fromtimestamp(world.clock() - age, datetime.timezone.utc).isoformat()
    path = quickrepository.write_lock(world.repository, world.workshop.key, {
        "time": when, "exclusive": exclusive, "hostname": host, "username": "somebody", "pid": pid, "uid": 0, "gid": 0})
    if world.owner:
        os.chown(path, world.owner, world.owner)
    round_.note(f"   a lock{' for itself alone' if exclusive else ''} of {host}, {age} s old")
    round_.change(chance)
    if exclusive:
        code = round_.failed_backup("a lock of somebody else")
        if code == 0:
            complain("rule 6", "a backup was made beside somebody who has the repository for himself")
    else:
        round_.back_up()
    if not path.exists():
        complain("rule 6", f"the lock of a process that may live ({host}, {age} s old) was removed")
    path.unlink()
    round_.back_up()


def moment(round_, chance):
    """Part of the repository cannot be read for a moment."""
    world = round_.world
    kind = chance.choice(["snapshots", "index", "data", "config", "keys", "all"])
    if kind == "all" and world.repository in world.small:
        return  # A disk of its own, whose mount point cannot be renamed.
    if kind == "all":
        away, path = world.folder / "repository-away", world.repository
    else:
        path = world.repository / kind
        if path.is_dir():
            found = sorted(each for each in path.rglob("*") if each.is_file())
            if not found:
                return
            path = chance.choice(found)
        away = world.folder / "moment"
    how = chance.choice(["is missing", "is damaged"]) if path.is_file() else "is missing"
    if how == "is missing":
        shutil.move(path, away)
    else:
        kept = path.read_bytes()
        path.chmod(0o600)
        damage.flip(path, chance)
    round_.note(f"   {kind} {path.name[:8]} {how} for a moment")
    round_.change(chance)
    if chance.random() < 0.3:
        world.stop()
        world.start()
    code, errors = round_.order_backup()
    round_.note(f"   backup: {code} {errors[:100]}")
    if kind in ("config", "keys", "all") and code == 0 and how == "is missing":
        complain("rule 2", f"`backup now --wait` ends with 0 while {kind} {how}")
    if kind == "all" and path.exists():
        complain("rule 6", "another repository was made where the missing one belongs")
    if how == "is missing":
        shutil.move(away, path)
    else:
        path.write_bytes(kept)
    world.wait(lambda: round_.order_backup()[0] in (0, 3), "a backup succeeds when the repository is whole again")
    round_.absorb()
    round_.back_up()


# Permanent damage


def packs(round_, chance):
    round_.back_up()
    files = sorted(path for path in (round_.world.repository / "data").rglob("*") if path.is_file())
    for path in chance.sample(files, min(len(files), chance.choice([1, 1, 3, len(files)]))):
        path.chmod(0o600)
        how = chance.choice([damage.flip, damage.cut, damage.drop])
        round_.note(f"   pack {path.name[:8]} {how(path, chance)}")
    round_.is_damaged = True


def verify(round_, lost):
    """After a verification no unrestorable file is shown as backed up, and the status reports the damage."""
    world, model = round_.world, round_.model
    code, out, errors = world.ctl("verify", "--wait", seconds=120)
    if code == 2:
        code, out, errors = world.ctl("verify", seconds=120)
    if code == 2:
        round_.note("   no verification: " + errors.strip()[:80])
        return
    round_.note(f"   verified: {code} {(out + errors).strip()[:200]}")
    lost = lost & round_.lost_in_newest()  # The daemon stores missing data again.
    files = {path for path in lost if model.newest[path].entry.kind == "file" and model.newest[path].entry.size}
    if files:
        model.damaged = files
        checks.must_say(world, "damage that a verification has found")
        checks.becomes_not_green(world, model)
