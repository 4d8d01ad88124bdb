"""Restores in the middle of a round: to another location, or in place over changed files."""

import os
import pathlib

from torture import checks
from torture.checks import Outcome, complain
from torture.edits import ALL as EDITS
from torture.model import is_below
from torture.tree import shown


def restores(round_, chance):
    """Restores some paths to another location, or in place after changing them."""
    world, model = round_.world, round_.model
    round_.back_up()
    paths = sorted(path for path in model.newest if not model.is_away(path)
                   and path not in {os.fsencode(root) for root in model.roots})
    if not paths:
        return
    path = chance.choice(paths)
    if chance.random() < 0.5:
        to = world.new_output(chance)
        outcome = Outcome(world, [path], to)
        round_.note(f"   restored {shown(path)[-80:]} elsewhere: {outcome.code}")
        checks.restored(world, model, outcome, model.below(pathlib.Path(os.fsdecode(path))),
                        os.path.join(os.fsencode(to), os.path.basename(path)), path)
    else:
        in_place(round_, chance, path)
    round_.restore_deleted(chance, 1)


def _may_write(folder, world):
    return folder is not None and folder.uid == world.owner and folder.mode & 0o300 == 0o300


def in_place(round_, chance, path):
    world, model = round_.world, round_.model
    round_.pause()
    wanted = model.below(pathlib.Path(os.fsdecode(path)))
    maker = round_.maker(world.home)
    maker.root = path if os.path.isdir(path) and not os.path.islink(path) else os.path.dirname(path)
    for _ in range(chance.randint(1, 4)):
        round_.note("   " + EDITS[chance.choice(["edits", "deletions", "kinds"])](maker, chance))
    before = model.note_disk()
    outcome = Outcome(world, [path])
    round_.note(f"   restored {shown(path)[-80:]} in place: {outcome.code}")
    clash = {each for each in before if each in model.newest
             and ("folder" in (before[each].kind, model.newest[each].entry.kind)
                  and before[each].kind != model.newest[each].entry.kind)}
    above = os.path.dirname(path)
    if above not in before or before[above].kind != "folder":
        clash.add(path)
    if world.owner:  # Nothing can be restored into folders that the user may not write to.
        clash |= {each for each in checks.everything(wanted, path) if not _may_write(before.get(os.path.dirname(each)), world)}
    checks.restored(world, model, outcome, wanted, path, path, allowed=clash, fresh=False)
    after = model.expected()
    lost = [shown(each) for each in before if is_below(each, {path}) and each not in model.newest
            and each not in after]
    if lost:
        complain("rule 6", "a restore in place has taken away what was not in the backup", lost)
    round_.back_up()
