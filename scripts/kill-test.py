#!/usr/bin/env python3
"""Kills the local daemon, restic or both, at random moments of backups and restores.

    scripts/kill-test.py [COUNT] [--seed NUMBER] [--build DIR]

After each kill no half file may stand where files are restored to, and "restic check" must find the repository whole;
the daemon that is started next must finish the work, and what is restored must be what was saved. Fails otherwise.
"""

import argparse
import collections
import hashlib
import json
import os
import pathlib
import random
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import trees

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILDS = ["build/dev", "build/release", "build/asan"]
TIMEOUT = 90.0  # Seconds until an expected event counts as missing.
LATEST_KILL = 2.5  # Seconds after the request.
FILES = 300
LARGE_FILES = 3
LARGE = 8_000_000  # bytes
STAGING = ".kelvane-restore-"
RUNNING = 50  # The lowest status of a job that has not ended.


class Failure(Exception):
    pass


def find_build(named):
    for build in [named] if named else BUILDS:
        if (ROOT / build / "LocalDaemon/kelvane-local-daemon").exists():
            return ROOT / build
    raise Failure("kelvane-local-daemon has not been built")


def digest(path):
    return hashlib.sha256(path.read_bytes()).digest()


class World:
    def __init__(self, build, folder, chance):
        self.build, self.folder, self.chance = build, folder, chance
        self.home, self.kept, self.restored = folder / "home", folder / "kept", folder / "restored"
        self.environment = dict(os.environ, KELVANE_DAEMON=str(folder / "daemon.sock"),
                                **{f"XDG_{kind}_HOME": str(folder / kind.lower())
                                   for kind in ("CONFIG", "STATE", "DATA", "CACHE")})
        self.log = open(folder / "log", "w+")
        self.daemon = None
        self.has_backup = False
        self.deleted = {}
        self.versions = collections.defaultdict(set)
        self.home.mkdir()
        trees.make(self.home, FILES)
        for number in range(LARGE_FILES):
            (self.home / f"large {number}").write_bytes(chance.randbytes(LARGE))
        subprocess.run(["cp", "-a", self.home, self.kept], check=True)
        self.note_versions()

    def note_versions(self):
        for path in trees.files_in(self.kept):
            self.versions[path.relative_to(self.kept)].add(digest(path))

    def change(self):
        """Changes some bytes of some files, and all bytes of the large ones, so that saving them takes a while. After
        the first backup also deletes a saved file, which must be restored only on request."""
        files = trees.files_in(self.home)
        large = [path for path in files if path.name.startswith("large")]
        small = self.chance.sample([path for path in files if path not in large], 21)
        if self.has_backup:
            gone = small.pop()
            name = gone.relative_to(self.home)
            self.deleted[gone] = digest(gone)
            gone.unlink()
            (self.kept / name).unlink()
            (self.restored / "home" / name).unlink(missing_ok=True)
        for path in small + large:
            copy = self.kept / path.relative_to(self.home)
            mode = path.stat().st_mode
            path.chmod(0o600)
            path.write_bytes(self.chance.randbytes(max(1, path.stat().st_size)))
            path.chmod(mode)
            copy.unlink()
            shutil.copy2(path, copy)
        self.note_versions()

    def start(self):
        self.daemon = subprocess.Popen(
            [self.build / "LocalDaemon/kelvane-local-daemon", "--home", self.home, "--socket",
             self.environment["KELVANE_DAEMON"], "--repository", self.folder / "repository", "--password-file",
             self.folder / "key", "--log", self.folder / "daemon.log"], stdin=subprocess.DEVNULL, stdout=self.log, stderr=self.log, env=self.environment)

    def ctl(self, *words, check=True):
        run = subprocess.run([self.build / "Tools/kelvanectl", "--timeout", "20", *words], env=self.environment,
                             capture_output=True, text=True)
        if check and run.returncode != 0:
            raise Failure(f"kelvanectl {' '.join(map(str, words))} ended with {run.returncode}: {run.stderr}")
        return run

    def restics(self):
        found = []
        for entry in pathlib.Path("/proc").iterdir():
            try:
                if entry.name.isdigit() and (entry / "comm").read_text().strip() == "restic" \
                        and str(self.folder).encode() in (entry / "environ").read_bytes():
                    found.append(int(entry.name))
            except OSError:
                pass  # The process has ended.
        return found

    def kill(self, victims):
        """Kills only processes of this test: its daemon, and each restic with this test's folder."""
        restics = self.restics()
        if "daemon" in victims:
            self.daemon.kill()
            self.daemon.wait()
        for process in restics if "restic" in victims else []:
            try:
                os.kill(process, signal.SIGKILL)
            except ProcessLookupError:
                pass
        return len(restics)

    def stop(self):
        if self.daemon and self.daemon.poll() is None:
            self.daemon.terminate()
            self.daemon.wait()
        self.wait(lambda: not self.restics(), "restic ends with the daemon")

    def wait(self, condition, what):
        deadline = time.monotonic() + TIMEOUT
        while not condition():
            if time.monotonic() > deadline:
                raise Failure(f"timed out waiting for: {what}")
            time.sleep(0.1)

    def back_up(self):
        self.wait(lambda: self.ctl("backup", "now", "--wait", check=False).returncode == 0, "everything is backed up")
        self.has_backup = True

    def order_restore(self):
        answer = self.ctl("--json", "restore", "--to", self.restored, self.home)
        return json.loads(answer.stdout)[0]["job"]

    def await_restore(self, job):
        def ended():
            answer = self.ctl("call", "getRestoreJobStatus:", str(job)).stdout
            return int(answer) < RUNNING
        self.wait(ended, "the restore ends")
        status = int(self.ctl("call", "getRestoreJobStatus:", str(job)).stdout)
        if status != 1:
            reasons = self.ctl("call", "stringValueForProfileKey:", f"restoreJobFailures.{job}").stdout
            raise Failure(f"the restore ended with status {status}: {reasons}")

    def check_whole_files(self):
        for path in trees.files_in(self.restored):
            if STAGING in str(path):
                continue
            name = path.relative_to(self.restored / "home")
            if digest(path) not in self.versions[name]:
                raise Failure(f"incomplete file: {path}")

    def check_repository(self):
        if not (self.folder / "repository/config").exists():
            return  # The daemon was killed before it had created the repository.
        run = subprocess.run(["restic", "check", "--no-lock"], capture_output=True, text=True,
                             env=dict(self.environment, RESTIC_REPOSITORY=str(self.folder / "repository"),
                                      RESTIC_PASSWORD_FILE=str(self.folder / "key")))
        if run.returncode != 0:
            raise Failure(f"restic check: {run.stdout}{run.stderr}")

    def check_restored(self):
        found = list(trees.differences(self.kept, self.restored / "home"))
        if found:
            raise Failure("what was restored differs: " + "; ".join(map(str, found[:10])))
        left = [str(path) for path in self.folder.rglob(STAGING + "*")]
        if left:
            raise Failure(f"a staging folder was left: {left}")

    def check_deleted(self):
        place = self.folder / "deleted"
        self.ctl("restore", "--wait", "--to", place, *self.deleted)
        wrong = [path for path, saved in self.deleted.items() if digest(place / path.name) != saved]
        if wrong:
            raise Failure(f"deleted files were restored with other contents: {wrong}")


def one_round(world, number):
    kind = world.chance.choice(["backup", "restore"]) if number > 0 else "backup"
    victims = world.chance.choice([("daemon", "restic"), ("daemon", "restic"), ("daemon",), ("restic",)])
    delay = world.chance.uniform(0, LATEST_KILL)
    job = None
    world.change()
    if kind == "backup":
        world.ctl("backup", "now")
    else:
        world.back_up()
        delay = world.chance.uniform(0, LATEST_KILL / 2)
        job = world.order_restore()
    time.sleep(delay)
    restics = world.kill(victims)
    world.check_whole_files()
    if "daemon" in victims:
        world.wait(lambda: not world.restics(), "restic ends when its daemon has been killed")
        world.check_repository()
        world.start()
    if kind == "backup":
        world.back_up()
    else:
        world.await_restore(job)
        world.check_restored()
    print(f"{number + 1:3}  {kind:7} {' and '.join(victims):17} killed after {delay:.2f} s"
          f" ({restics} restic at work): finished by the next run", flush=True)


def run(world, count):
    world.start()
    for number in range(count):
        one_round(world, number)
    world.back_up()
    world.await_restore(world.order_restore())
    world.check_restored()
    world.check_deleted()
    world.stop()
    world.check_repository()
    locks = len(list((world.folder / "repository/locks").iterdir()))
    print(f"{count} kills: restic check is clean, {locks} locks are left, no half file, everything came back as it was")


def main():
    arguments = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    arguments.add_argument("count", nargs="?", type=int, default=5)
    arguments.add_argument("--seed", type=int, default=random.randrange(10**6))
    arguments.add_argument("--build")
    options = arguments.parse_args()
    print(f"seed {options.seed}")
    folder = pathlib.Path(tempfile.mkdtemp(prefix="kelvane-kill-"))
    world = None
    try:
        world = World(find_build(options.build), folder, random.Random(options.seed))
        run(world, options.count)
    except Failure as failure:
        print(f"FAILED: {failure}", file=sys.stderr)
        if world:
            world.log.seek(0)
            print("".join(world.log.readlines()[-30:]), file=sys.stderr)
        sys.exit(1)
    finally:
        if world and world.daemon and world.daemon.poll() is None:
            world.daemon.kill()
        subprocess.run(["chmod", "-R", "u+rwx", folder], check=False)
        shutil.rmtree(folder, ignore_errors=True)


main()
