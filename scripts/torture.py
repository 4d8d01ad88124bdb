#!/usr/bin/env python3
"""Tries to lose files with the local daemon: homes and events at random, and everything restored and compared.

    scripts/torture.py [--known] [--seed N] [--rounds N] [--seconds N] [--jobs N] [--events LIST] [--keep] [--build DIR]

Each round has a seed of its own, counted up from --seed; the same seed has the same events. LIST is of kinds of events
and traits of homes, separated by commas: "all,-names" has all but one, "edits,clock,names" only these (--list names
them). A round that fails prints its seed, its events and what differed; it is then tried with fewer events, as long as
it still fails. The exit status is 1 when a round failed. With --known the rounds of torture/seeds.txt, those that once
found something, come first, all of them; --seconds counts from then on. As root it uses mounts of its own; elsewhere the events that need them are left out.
"""

import argparse
import multiprocessing
import os
import pathlib
import random
import sys
import tempfile
import time
import traceback

from torture import edits, events
from torture.round import TRAITS, Round
from torture.world import Finding, Workshop, clear, enter_private_mounts

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = ["build/dev", "build/release", "build/asan"]
SEEDS = ROOT / "scripts/torture/seeds.txt"
CONDITIONS = ["user", "memory"]  # The user who runs the daemon is not root; folders in memory.
KINDS = list(edits.ALL) + list(events.ALL) + list(events.DAMAGES) + TRAITS + CONDITIONS
MOST_TRIES = 12  # Rounds to find fewer events that still fail.


def find_build(named):
    for build in [named] if named else BUILDS:
        if (ROOT / build / "LocalDaemon/kelvane-local-daemon").exists():
            return ROOT / build
    sys.exit("torture: kelvane-local-daemon has not been built")


def kinds_from(text):
    kinds = set()
    for word in text.split(","):
        name = word.removeprefix("-")
        if name != "all" and name not in KINDS:
            sys.exit(f"torture: no kind of event is called {name}")
        change = set(KINDS) if name == "all" else {name}
        kinds = kinds - change if word.startswith("-") else kinds | change
    return kinds


def attempt(workshop, folder, seed, kinds, keep, skipped=()):
    """Runs a round. Returns the plan, the log, and the finding or None."""
    folder.mkdir()
    round_, finding = Round(workshop, folder, seed, kinds, skipped), None
    try:
        round_.run()
    except Finding as found:
        finding = str(found)
    except Exception:  # An error of this script must not count as a successful round.
        finding = "this script: " + traceback.format_exc()
    round_.world.close(keep and finding)
    if not (keep and finding):
        clear(folder)
    return round_.plan, round_.world.account, finding


def rule_of(finding):
    return finding.split(":")[0]


def shorten(workshop, folder, seed, kinds, plan, finding):
    """Omits one event after the other while the same rule is still violated."""
    skipped, best = set(), None
    for number in reversed(range(min(len(plan), MOST_TRIES))):
        _, account, again = attempt(workshop, folder, seed, kinds, False, skipped | {number})
        if again and rule_of(again) == rule_of(finding):
            skipped, best = skipped | {number}, (account, again)
    return skipped, best


def report(seed, kinds_text, account, finding, shorter):
    lines = [f"FAILED: seed {seed}: {finding}", f"  again: scripts/torture.py --rounds 1 --seed {seed} --events={kinds_text}"]
    if shorter and shorter[1]:
        skipped, (account, finding) = shorter
        lines.append(f"  with fewer events (--skip {','.join(map(str, sorted(skipped)))}): {finding}")
    return "\n".join(lines + ["  " + line for line in account])


def work(job):
    """Runs one round in a separate process."""
    workshop, base, seed, kinds_text, options = job
    kinds = kinds_from(kinds_text)
    begin = time.monotonic()
    folder = base / f"r{seed}"
    plan, account, finding = attempt(workshop, folder, seed, kinds, options.keep, options.skip)
    text = ""
    if finding:
        shorter = None
        if options.shorten and plan and not options.skip:
            shorter = shorten(workshop, base / f"s{seed}", seed, kinds, plan, finding)
        text = report(seed, kinds_text, account, finding, shorter)
    elif options.verbose:
        text = "\n".join([f"seed {seed}: passed"] + ["  " + line for line in account])
    return seed, bool(finding), text, time.monotonic() - begin


def known_rounds():
    for line in SEEDS.read_text().splitlines():
        if words := line.split("#")[0].split():
            yield int(words[0]), words[1]


def rounds_of(options):
    """Yields seeds, each with its kinds of events."""
    if options.known:
        yield from known_rounds()
    first = options.seed if options.seed is not None else random.randrange(10**6) * 1000
    print(f"seeds from {first}", flush=True)
    yield from within(((seed, options.events) for seed in range(first, first + options.rounds)), options.seconds)


def within(rounds, seconds):
    end = time.monotonic() + seconds if seconds else None
    for each in rounds:
        if end and time.monotonic() > end:
            return
        yield each


def run(options, base):
    workshop = Workshop(base, find_build(options.build))
    kinds_from(options.events)  # Reports an invalid plan before anything starts.
    failed, done, begin = [], 0, time.monotonic()
    slots = multiprocessing.BoundedSemaphore(options.jobs)

    def jobs():
        for seed, kinds_text in rounds_of(options):
            slots.acquire()  # Rounds are assigned as workers become free.
            yield workshop, base, seed, kinds_text, options

    with multiprocessing.Pool(options.jobs, enter_private_mounts) as pool:
        for seed, is_failed, text, seconds in pool.imap_unordered(work, jobs()):
            slots.release()
            done += 1
            failed += [seed] if is_failed else []
            if text or options.verbose:
                print(f"{text}\n  ({seconds:.1f} s)", flush=True)
    print(f"{done} rounds in {time.monotonic() - begin:.0f} s, {len(failed)} failed"
          + (f": seeds {' '.join(map(str, sorted(failed)))}" if failed else ""))
    if done == 0:
        print("no round has been run")
    return 1 if failed or done == 0 else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--known", action="store_true", help="first the rounds that once found something")
    parser.add_argument("--seed", type=int)
    parser.add_argument("--rounds", type=int, default=20)
    parser.add_argument("--seconds", type=float, help="begin no round after that; those of --known do not count")
    parser.add_argument("--jobs", type=int, default=os.cpu_count())
    parser.add_argument("--events", default="all")
    parser.add_argument("--skip", type=lambda text: [int(each) for each in text.split(",") if each], default=[],
                        help="numbers of events to leave out")
    parser.add_argument("--shorten", action=argparse.BooleanOptionalAction, default=True)
    parser.add_argument("--keep", action="store_true", help="leave the folders of rounds that failed")
    parser.add_argument("--verbose", action="store_true")
    parser.add_argument("--list", action="store_true")
    parser.add_argument("--build")
    options = parser.parse_args()
    if options.list:
        print(", ".join(KINDS))
        return 0
    if os.geteuid() != 0:
        print(f"not root: {', '.join(sorted(events.NEED_ROOT))}, other owners and devices are left out")
    base = pathlib.Path(tempfile.mkdtemp(prefix="torture-"))
    base.chmod(0o755)
    try:
        return run(options, base)
    finally:
        if not options.keep:
            clear(base)


if __name__ == "__main__":
    sys.exit(main())
