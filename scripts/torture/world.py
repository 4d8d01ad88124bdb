"""A machine for one round: folders, mounts, clock, restic, the daemon, and its clients."""

import ctypes
import json
import os
import pathlib
import plistlib
import shutil
import signal
import struct
import subprocess
import time

from torture import quickrepository
from torture.files import acl

HERE = pathlib.Path(__file__).resolve().parent
PASSWORD = "torture"
TIMEOUT = 60.0  # Seconds until an expected event counts as missing.
DAY = 86400
SECOND = 10**9
# The size of a disk in bytes.
SMALL = {"volume": 1 << 26, "home": 1 << 29, "repository": 1 << 28, "state": 1 << 22}
HOST = os.uname().nodename


class Finding(Exception):
    """A violated invariant: one sentence, and details."""


class Workshop:
    """Shared by all rounds: the programs for the clock, and a repository to copy, created once."""

    def __init__(self, folder, build):
        self.folder, self.build = folder, build
        self.restic = shutil.which("restic")
        compiler = shutil.which("cc") or shutil.which("gcc") or shutil.which("clang")
        if not self.restic or not compiler:
            raise SystemExit("torture: restic and a C compiler are needed")
        self.clock, self.wrapper = folder / "clock.so", folder / "restic-with-clock"
        subprocess.run([compiler, "-O1", "-shared", "-fPIC", "-o", self.clock, HERE / "clock.c", "-ldl"], check=True)
        subprocess.run([compiler, "-O1", f'-DRESTIC="{self.restic}"', "-o", self.wrapper, HERE / "restic.c"], check=True)
        self.repository = folder / "template"
        (folder / "key").write_text(PASSWORD + "\n")
        self.key = quickrepository.create(self.repository, PASSWORD.encode())


class World:
    def __init__(self, workshop, folder, *, owner=0, keep_days=30, traits=()):
        self.workshop, self.folder, self.owner, self.keep_days = workshop, folder, owner, keep_days
        self.traits = traits
        self.home, self.volume, self.repository = folder / "home", folder / "volume", folder / "repository"
        self.state, self.out, self.scratch = folder / "state", folder / "out", folder / "scratch"
        self.is_root = os.geteuid() == 0
        self.daemon, self.mounts, self.account = None, [], []
        self.extra_environment = {}
        self.real_offset = self.boot_offset = self.true_offset = 0
        self.outputs = 0

    # Folders and mounts

    def prepare(self, *, has_volume, on_memory, home_is_disk, small_disks):
        if self.is_root and on_memory:
            self.mount_memory(self.folder, 1 << 31)
        self.folder.chmod(0o755)
        self.volumes = [self.volume] if has_volume else []
        self.disks = self.volumes + ([self.home] if home_is_disk else [])
        self.small = [self.repository, self.state] if small_disks else []
        for path in (self.home, self.state, self.out, self.scratch, self.folder / "bin", self.folder / "run",
                     self.folder / "config/kelvane", self.folder / "data", self.folder / "cache"):
            path.mkdir(parents=True)
        for path in self.disks + self.small:
            path.mkdir(exist_ok=True)
            self.mount_memory(path, SMALL[path.name])
        shutil.copytree(self.workshop.repository, self.repository, dirs_exist_ok=True)
        shutil.copy(self.workshop.wrapper, self.folder / "bin/restic")
        self.write_clock()
        (self.folder / "key").write_text(PASSWORD + "\n")
        (self.folder / "key").chmod(0o600)
        with open(self.folder / "config/kelvane/local-daemon.plist", "wb") as file:
            plistlib.dump({"homeFolder": str(self.home), "repository": str(self.repository),
                           "passwordFile": str(self.folder / "key"), "volumes": [str(each) for each in self.volumes],
                           "resticProgram": str(self.folder / "bin/restic"), "keepDays": self.keep_days,
                           "intervalMinutes": 1440, "computerNumber": 7, "policyExcludeList": ["/proc/*"]}, file)
        self.own(self.folder)

    def own(self, root):
        if not self.is_root or not self.owner:
            return
        for folder, folders, files in os.walk(os.fsencode(root)):
            for name in folders + files + [b"."]:
                os.chown(os.path.join(folder, name), self.owner, self.owner, follow_symlinks=False)

    def mount_memory(self, path, size):
        subprocess.run(["mount", "-t", "tmpfs", "-o", f"size={size},mode=755", "torture", path], check=True)
        self.mounts.append(path)
        if self.owner:
            os.chown(path, self.owner, self.owner)

    def move_mount(self, path, to):
        to.mkdir(exist_ok=True)
        subprocess.run(["mount", "--move", path, to], check=True)
        self.mounts[self.mounts.index(path)] = to

    # Time

    def write_clock(self):
        path = self.folder / "bin/clock"
        with open(path, "r+b" if path.exists() else "wb") as file:
            file.write(struct.pack("<qq", self.real_offset, self.boot_offset))

    def pass_days(self, days):
        """Moves all clocks on, as when the machine was suspended for these days."""
        self.true_offset += int(days * DAY * SECOND)
        self.real_offset += int(days * DAY * SECOND)
        self.boot_offset += int(days * DAY * SECOND)
        self.write_clock()

    def set_clock_wrong(self, seconds):
        self.real_offset = self.true_offset + int(seconds * SECOND)
        self.write_clock()

    def now(self):
        """Returns the correct time in seconds, whatever the machine's clock shows."""
        return time.time() + self.true_offset / SECOND

    def clock(self):
        return time.time() + self.real_offset / SECOND

    # Processes

    def environment(self):
        base = {name: value for name, value in os.environ.items() if not name.startswith(("RESTIC_", "XDG_", "KELVANE"))}
        base.update({"HOME": str(self.folder), "KELVANE_DAEMON": str(self.folder / "s"), "TZ": "UTC",
                     "XDG_RUNTIME_DIR": str(self.folder / "run")})
        base.update({f"XDG_{kind}_HOME": str(self.folder / kind.lower()) for kind in ("CONFIG", "STATE", "DATA", "CACHE")})
        return base

    def person(self):
        """Returns the process arguments that run the daemon and its clients as the round's user."""
        return {"user": self.owner, "group": self.owner, "extra_groups": []} if self.is_root and self.owner else {}

    def start(self):
        environment = dict(self.environment(), TORTURE_CLOCK=str(self.folder / "bin/clock"),
                           LD_PRELOAD=str(self.workshop.clock), **self.extra_environment)
        with open(self.folder / "stderr", "ab") as log:
            self.daemon = subprocess.Popen(
                [self.workshop.build / "LocalDaemon/kelvane-local-daemon", "--socket", self.folder / "s", "--verbose",
                 "--log", self.folder / "log"], stdin=subprocess.DEVNULL, stdout=log, stderr=log, env=environment,
                cwd="/", **self.person())
        self.wait(lambda: self.status() or self.daemon.poll() is not None, "the daemon answers after its start")
        self.check_alive()

    def check_alive(self):
        if self.daemon and self.daemon.poll() is not None:
            tail = (self.folder / "stderr").read_bytes()[-1500:].decode("utf-8", "replace")
            raise Finding(f"rule 8: the daemon has ended with {self.daemon.returncode}: {tail}")

    def stop(self):
        """Asks the daemon to exit, which it must do within seconds."""
        self.check_alive()
        self.daemon.terminate()
        try:
            code = self.daemon.wait(20)
        except subprocess.TimeoutExpired:
            raise Finding("the daemon does not end within 20 s of SIGTERM") from None
        self.daemon = None
        if code not in (0, -signal.SIGTERM):
            raise Finding(f"rule 8: the daemon ends with {code} when it is stopped")
        self.wait(lambda: not self.restics(), "restic ends with the daemon")

    def restics(self):
        found = []
        for entry in os.listdir("/proc"):
            try:
                if entry.isdigit() and pathlib.Path("/proc", entry, "comm").read_text().strip() == "restic" \
                        and os.fsencode(self.folder) in pathlib.Path("/proc", entry, "environ").read_bytes():
                    found.append(int(entry))
            except OSError:
                pass  # The process has ended.
        return found

    def settle(self):
        """Waits until restic no longer runs: forgetting and pruning follow a backup."""
        quiet = 0
        def is_quiet():
            nonlocal quiet
            quiet = 0 if self.restics() else quiet + 1
            return quiet == 3
        self.wait(is_quiet, "restic ends after a backup")

    def kill(self, victims):
        restics = self.restics()
        if "daemon" in victims:
            self.daemon.kill()
            self.daemon.wait()
            self.daemon = None
        if "restic" in victims:
            for process in restics:
                try:
                    os.kill(process, signal.SIGKILL)
                except ProcessLookupError:
                    pass
        if "daemon" in victims:
            self.wait(lambda: not self.restics(), "restic ends when its daemon has been killed")
        return len(restics)

    def wait(self, condition, what, seconds=TIMEOUT):
        deadline = time.monotonic() + seconds
        while not (result := condition()):
            if time.monotonic() > deadline:
                raise Finding(f"timed out waiting for: {what}")
            time.sleep(0.05)
        return result

    # The command-line tool

    def ctl(self, *words, seconds=TIMEOUT):
        """Returns the exit status of kelvanectl (None for a timeout), its output and its errors."""
        try:
            run = subprocess.run([self.workshop.build / "Tools/kelvanectl", "--timeout", "20", *words],
                                 env=self.environment(), capture_output=True, timeout=seconds, **self.person())
        except subprocess.TimeoutExpired as late:
            return None, (late.stdout or b"").decode("utf-8", "replace"), (late.stderr or b"").decode("utf-8", "replace")
        return run.returncode, run.stdout.decode("utf-8", "surrogateescape"), run.stderr.decode("utf-8", "surrogateescape")

    def status(self):
        code, out, _ = self.ctl("--json", "status")
        return json.loads(out) if code == 0 else None

    def fill(self, folder, left):
        """Fills the disk of `folder` up to `left` bytes; returns the file that takes the space."""
        ballast, block = folder / "ballast", bytes(1 << 16)
        with open(ballast, "wb", buffering=0) as file:
            try:
                while True:
                    file.write(block)
            except OSError:
                pass  # The disk is full, as intended.
            file.truncate(max(0, file.tell() - left))
        return ballast

    def new_output(self, chance=None):
        """Creates a folder to restore to, which may have a default ACL for new files."""
        self.outputs += 1
        path = self.out / str(self.outputs)
        path.mkdir()
        if chance and chance.random() < 0.3:
            path.chmod(0o2777)
            try:
                os.setxattr(path, "system.posix_acl_default", acl(chance, 7))
            except OSError:
                pass  # This file system has no ACLs.
        if self.owner:
            os.chown(path, self.owner, self.owner)
        return path

    # restic, called by this script itself.

    def run_restic(self, *words):
        return subprocess.run([self.workshop.restic, "--repo", self.repository, "--password-file", self.folder / "key",
                               "--no-cache", "--no-lock", *words], capture_output=True, env=self.environment())

    def snapshots(self):
        """Returns the snapshots by their original ids: a tag that is added later changes the id."""
        run = self.run_restic("snapshots", "--json")
        if run.returncode != 0:
            raise Finding("rule 1: restic cannot list the snapshots: " + run.stderr.decode("utf-8", "replace").strip())
        return {each.get("original", each["id"]): each["id"] for each in json.loads(run.stdout or b"[]") or []}

    def fetch(self, snapshot):
        """Restores a whole snapshot with restic into a separate folder, as far as possible."""
        target = self.scratch / snapshot[:16]
        if target.exists():
            clear(target)
        run = self.run_restic("restore", self.snapshots()[snapshot], "--target", target)
        return target, run

    def close(self, keeps_folders=False):
        """Removes everything that the round has created, also after a failure."""
        if self.daemon and self.daemon.poll() is None:
            self.daemon.kill()
            self.daemon.wait()
        deadline = time.monotonic() + 20
        while (left := self.restics()) and time.monotonic() < deadline:
            for process in left:
                try:
                    os.kill(process, signal.SIGKILL)
                except ProcessLookupError:
                    pass
            time.sleep(0.05)
        for path in reversed(self.mounts):
            if keeps_folders:  # They end with this process's mounts.
                subprocess.run(["cp", "-a", f"{path}/.", f"{self.folder}-{path.name}"], check=False)
            subprocess.run(["umount", "--lazy", path], check=False, stderr=subprocess.DEVNULL)
        self.mounts = []


def clear(path):
    if os.geteuid() != 0:
        subprocess.run(["chmod", "-R", "u+rwx", path], check=False, stderr=subprocess.DEVNULL)
    shutil.rmtree(os.fsencode(path), ignore_errors=True)


def enter_private_mounts():
    """Gives this process and its children private mounts. Returns False where that is not allowed."""
    clone_newns, recursive, private = 0x20000, 0x4000, 0x40000
    libc = ctypes.CDLL(None, use_errno=True)
    return os.geteuid() == 0 and libc.unshare(clone_newns) == 0 \
        and libc.mount(b"none", b"/", None, recursive | private, None) == 0
