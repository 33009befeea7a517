"""The road from a folder of releases to a verified installer, walked by whole processes.

A campaign spoils something on the road, over and over in another way, and asks after each time what
must hold whatever happens. torture.py has the campaigns. The environment says how they run:

ZVUPDATE_BIN        the folder with the programs
ZVUPDATE_TORTURE    set for the full campaigns
ZVUPDATE_SANITIZED  set where the programs are built with a sanitizer, which rules out strace and
                    valgrind: each wants to trace the process
ZVUPDATE_SEED       repeats a former run
"""

import contextlib
import json
import os
import pathlib
import random
import re
import shutil
import stat
import subprocess
import tempfile
import time
import unittest

BIN = pathlib.Path(os.environ["ZVUPDATE_BIN"]).absolute()
LONG = bool(os.environ.get("ZVUPDATE_TORTURE"))
SANITIZED = bool(os.environ.get("ZVUPDATE_SANITIZED"))
SEED = int(os.environ.get("ZVUPDATE_SEED") or random.SystemRandom().randrange(1 << 32))
PATIENCE = 120  # Seconds until something that must happen counts as missing.
MIB = 1 << 20
OLDER = b"an older installer"
MODES = ("session", "connection")


def expect(condition, message):
    if not condition:
        raise AssertionError(f"{message} (seed {SEED})")


def wait_until(what, condition):
    deadline = time.monotonic() + PATIENCE
    while not condition():
        expect(time.monotonic() < deadline, f"waited {PATIENCE} s in vain until {what}")
        time.sleep(0.001)


def traced_by(program):
    """For a campaign that runs what it tries under another program."""
    lacks = "" if shutil.which(program) else f"{program} is not installed"
    return unittest.skipIf(SANITIZED or lacks, lacks or "the programs are built with a sanitizer")


def tried(ends, held):
    """Says how the variants have ended, and what held after each."""
    expect(ends.total() > 0, "nothing was tried")
    print(f"{ends.total()} variants, {dict(ends)}: {held}", flush=True)


def strace(*arguments, paths=(), log="/dev/null"):
    selection = [part for path in paths for part in ("-P", str(path))]
    return [shutil.which("strace"), "-f", "-qq", "-o", str(log), *arguments, *selection]


def temporary_folder(stack):
    return pathlib.Path(stack.enter_context(
        tempfile.TemporaryDirectory(prefix="zvupdate-torture.")))


class Outcome:
    """How one run of zvupdate ended."""

    def __init__(self, status, output, errors):
        self.status = status
        self.output = output
        self.errors = errors
        expect("Sanitizer:" not in errors and "runtime error:" not in errors, errors)

    def __str__(self):
        return f"status {self.status}, {self.output!r}, {self.errors!r}"


class Road(contextlib.ExitStack):
    """A release folder, its service, and a home with a save directory; gone after the `with`.

    What lies around the save directory and the preferences is looked at once, in the beginning, and
    must never change.
    """

    def __init__(self, size):
        super().__init__()
        self.installer = random.Random(SEED).randbytes(size)
        self.base = temporary_folder(self)
        self.tree = self.base / "tree"
        self.save = self.tree / "save"
        self.partial = self.save / "P1_2.bin"
        self.image = self.save / "P1_2.dmg"
        self.older_image = self.save / "P1_1.dmg"
        self.home = self.tree / "home"
        self.settings_folder = self.home / ".config" / "ZVUpdate"
        self.settings = self.settings_folder / "zvupdate.conf"
        self.settings_lock = self.settings.with_name(self.settings.name + ".lock")
        self.outside = self.tree / "outside"
        self.service_log = self.base / "service.log"
        releases = self.base / "releases"
        for folder in (releases, self.save, self.home / "Documents", self.settings_folder,
                       self.outside, self.tree / "tmp"):
            folder.mkdir(parents=True)
        (releases / "installer").write_bytes(self.installer)
        release = {"version": "2", "installer": "installer"}
        (releases / "releases.json").write_text(
            json.dumps({"products": [{"id": "P1", "releases": [release]}]}))
        (self.outside / "treasure").write_bytes(b"not to be touched")
        self.older_image.write_bytes(OLDER)

        with open(self.service_log, "wb") as log:
            service = self.enter_context(subprocess.Popen(
                [BIN / "zvupdate-service", "--directory", releases],
                stdout=subprocess.PIPE, stderr=log))
        self.callback(service.kill)
        url = service.stdout.readline().decode().strip()
        expect(url.endswith("dt="), f"the service did not start: {self.service_log.read_text()}")
        (self.home / "Documents" / "ConsoleZVUpdate.mac").write_text(url)
        self.surroundings = self._look_around()

    def another_home(self):
        """Preferences of their own for some of the processes."""
        home = self.base / "another home"
        shutil.copytree(self.home / "Documents", home / "Documents")
        return home

    def start(self, mode="session", wrapper=(), home=None):
        """Starts a check."""
        home = home or self.home
        environment = {name: value for name, value in os.environ.items()
                       if not name.lower().endswith("_proxy")}
        environment.update(HOME=str(home), XDG_CONFIG_HOME=str(home / ".config"),
                           TMPDIR=str(self.tree / "tmp"), LC_ALL="C.UTF-8")
        process = subprocess.Popen(
            [*wrapper, BIN / "zvupdate", "check", "--product-id", "P1",
             "--product-version", "1", "--directory", self.save, "--json", "--mode", mode],
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=environment,
            cwd=self.tree)
        self.callback(process.kill)
        return process

    def finish(self, process, may_end_by=None):
        """Waits for the end, which is never a crash and never far away."""
        try:
            output, errors = process.communicate(timeout=PATIENCE)
        except subprocess.TimeoutExpired:
            process.kill()
            process.communicate()
            raise AssertionError(f"still running after {PATIENCE} s: {process.args}") from None
        outcome = Outcome(process.returncode, output, errors)
        is_expected = may_end_by is not None and outcome.status == -may_end_by
        expect(outcome.status >= 0 or is_expected, f"crashed: {outcome}")
        return outcome

    def check(self, **how):
        return self.finish(self.start(**how))

    def clear(self, with_settings=True):
        """As before the first check."""
        for path in (self.partial, self.image):
            self.put_away(path)
        self.save.mkdir(exist_ok=True)
        if with_settings:
            self.put_away(self.settings_folder)
            self.settings_folder.mkdir()

    @staticmethod
    def put_away(path):
        if path.is_dir() and not path.is_symlink():
            shutil.rmtree(path)
        else:
            path.unlink(missing_ok=True)

    def holds(self):
        """What is true after each run, however it went."""
        if self.image.is_file():
            expect(self.image.read_bytes() == self.installer, "the image is not the installer")
        expect(self.older_image.is_file() and self.older_image.read_bytes() == OLDER,
               "the older image has changed")
        now = self._look_around()
        changed = {path for path in now.keys() | self.surroundings.keys()
                   if now.get(path) != self.surroundings.get(path)}
        expect(not changed, f"changed outside of the save directory: {sorted(changed)}")

    def arrives(self, most_runs=2, home=None, may_leave=()):
        """A healthy road leads to the installer. More than one run is needed when the first finds
        a spoilt partial file, which it throws away."""
        for _ in range(most_runs):
            outcome = self.check(home=home)
            self.holds()
            if outcome.status == 0:
                break
        expect(outcome.status == 0 and self.image.is_file(),
               f"no installer on a healthy road: {outcome}")
        left = set(self.save.iterdir()) - {self.older_image, self.image, *may_leave}
        expect(not left and self.older_image.exists(), f"left behind: {sorted(left)}")

    def starts(self):
        """Where each download that the service has finished with began, in bytes."""
        lines = [line for line in self.service_log.read_text().splitlines()
                 if " GET " in line and '"cmd=download' in line]
        ranges = [re.search(r"\((\d+)-\d+/\d+\)", line) for line in lines]
        return [int(found[1]) if found else 0 for found in ranges]

    def _look_around(self):
        """Every file but those that a check may touch, with what would tell of a change."""
        seen = {}
        for folder, folders, files in os.walk(self.tree):
            for path in (pathlib.Path(folder) / name for name in folders + files):
                if not {path, *path.parents} & {self.save, self.settings_folder}:
                    status = path.lstat()
                    is_folder = stat.S_ISDIR(status.st_mode)
                    seen[str(path)] = (status.st_mode, None if is_folder else status.st_mtime_ns,
                                       None if is_folder else status.st_size)
        return seen
