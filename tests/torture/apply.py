#!/usr/bin/env python3
"""Kills zvupdate-apply, and lets it meet a full disk."""

import collections
import contextlib
import hashlib
import io
import itertools
import os
import random
import shutil
import signal
import subprocess
import tarfile
import unittest

import road

LOOKS = ("access", "close", "fcntl", "fstatfs", "lseek", "newfstatat", "pread64", "read", "readlink",
         "readlinkat", "statfs", "statx", "getdents64")
CHANGES = ("chmod", "fchmod", "fchmodat", "flock", "fsync", "ftruncate", "link", "linkat", "mkdir",
           "mkdirat", "openat", "pwrite64", "rename", "renameat2", "rmdir", "symlink", "symlinkat",
           "syncfs", "unlink", "unlinkat", "utimensat", "write")
FEW = ("fsync", "rename", "renameat2", "syncfs", "unlinkat", "write")
FILLING = [call for call in CHANGES
           if call not in ("chmod", "flock", "rmdir", "unlink", "unlinkat")]
NO_EXCHANGE = ("-e", "inject=renameat2:error=EINVAL")

Form = collections.namedtuple("Form", "is_folder has_exchange ends_well lies_inside", defaults=(False,))
FORMS = [Form(*each) for each in itertools.product((False, True), (True, False), (True, False))]
FORMS.append(Form(is_folder=True, has_exchange=True, ends_well=True, lies_inside=True))


class Place(contextlib.ExitStack):
    """A target, its new version, and one that ends at once; gone after the `with`."""

    def __init__(self, form):
        super().__init__()
        self.form = form
        self.folder = road.temporary_folder(self)
        self.log = self.folder / "log"
        self.place = self.folder / "place"
        self.target = self.place / "app"
        self.previous = self.place / "app.previous"
        self.bytes = random.Random(road.SEED)
        self.old, self.earlier = self._version(b"exit"), self._version(b"exit 1")
        self.new, self.bad = (self._version(end) for end in (b"exit", b"exit 3"))
        for name, version in (("new", self.new), ("bad", self.bad)):
            self._pack(self.folder / name, version)

        if form.lies_inside:
            self.old["apply"] = (road.BIN / "zvupdate-apply").read_bytes()
        self._run(road.strace("-e", "trace=all", log=self.log), "--version")
        self.start_up = collections.Counter(
            text.partition("(")[0] for _, text in self._calls())

    def _version(self, end):
        """A program, or a folder with one; what lies in it by its path, "" for a file."""
        noise = self.bytes.randbytes(300_000).hex().encode()
        version = {"": b"#!/bin/sh\n" + end + b"\n" + noise}
        if self.form.is_folder:
            version = {"run": version[""], "lib/deep/data": noise[:70_000], "lib/more": b"", "b": b"x"}
        return version

    def _pack(self, path, version):
        if not self.form.is_folder:
            path.write_bytes(version[""])
            return
        with tarfile.open(path, "w:xz", preset=0) as archive:
            for name, content in version.items():
                info = tarfile.TarInfo(name)
                info.size, info.mode = len(content), 0o755
                archive.addfile(info, io.BytesIO(content))
            link = tarfile.TarInfo("lib/link")
            link.type, link.linkname = tarfile.SYMTYPE, "../run"
            archive.addfile(link)

    def _put(self, path, version):
        for name, content in version.items():
            file = path / name if name else path
            file.parent.mkdir(parents=True, exist_ok=True)
            file.write_bytes(content)
            file.chmod(0o755)

    def clear(self):
        shutil.rmtree(self.place, ignore_errors=True)
        self._put(self.target, self.old)
        self._put(self.previous, self.earlier)

    def apply(self, installer="new", wrapper=(), restarts=False):
        more = ["--program", "run"] if self.form.is_folder else []
        more += ["--probation", "1", "--restart"] if restarts else []
        digest = hashlib.md5((self.folder / installer).read_bytes()).hexdigest()
        return self._run(wrapper, "--installer", self.folder / installer, "--replace", self.target,
                         "--expect-md5", digest, *more)

    def _run(self, wrapper, *arguments):
        inside = self.target / "apply"
        program = inside if inside.exists() else road.BIN / "zvupdate-apply"
        done = subprocess.run([*wrapper, program, *arguments],
                              capture_output=True, env={"PATH": str(self.folder), "LC_ALL": "C.UTF-8"},
                              timeout=road.PATIENCE, text=True, check=False)
        return road.Outcome(done.returncode, done.stdout, done.stderr)

    def _calls(self):
        """The calls that were traced: of which process, and how."""
        return [line.split(None, 1) for line in self.log.read_text().splitlines()]

    def is_version(self, path, version):
        files = ["" if path.is_file() else str(file.relative_to(path))
                 for file in [path, *path.rglob("*")] if file.is_file() and not file.is_symlink()]
        return sorted(files) == sorted(version) and all(
            (path / name if name else path).read_bytes() == content and
            os.access(path / name if name else path, os.X_OK) for name, content in version.items())

    def inject(self, call, fault):
        trace = {call} if self.form.has_exchange else {call, "renameat2"}
        lacking = () if self.form.has_exchange or call == "renameat2" else NO_EXCHANGE
        return road.strace("-e", f"trace={','.join(sorted(trace))}", *lacking,
                           "-e", f"inject={call}:{fault}", log=self.log)

    def injected(self, call):
        """The first call of the program itself, and not of what it has started, that has failed."""
        calls = self._calls()
        return next((text for process, text in calls if process == calls[0][0] and
                     text.startswith(call + "(") and "(INJECTED)" in text), "")

    def tries(self, calls, faults):
        """What came of each fault at each call of its own: before those it has been loaded."""
        for call, fault in itertools.product(calls, faults):
            if (call == "renameat2" and not self.form.has_exchange or
                    call == "openat" and fault.endswith("+")):
                continue
            for number in itertools.count(self.start_up[call] + 1):
                self.clear()
                outcome = self.apply("new" if self.form.ends_well else "bad",
                                     self.inject(call, fault.format(number)),
                                     restarts=not self.form.ends_well)
                injected = self.injected(call)
                if outcome.status != -signal.SIGKILL and not injected:
                    break
                if call == "openat" and injected and "O_CREAT" not in injected:
                    continue  # Needs no room.
                yield f"{self.form} {call} {fault.format(number)}: {outcome}", outcome.status

    def goes_on(self, what):
        """The next run replaces it, and clears what was left."""
        outcome = self.apply()
        road.expect(outcome.status == 0 and self.is_version(self.target, self.new),
                    f"{what}; then {outcome}")
        left = {path.name for path in self.place.iterdir()}
        road.expect(left == {"app", "app.previous"}, f"{what}: left behind: {left}")


class Campaigns(unittest.TestCase):
    @road.traced_by("strace")
    def test_apply_kill(self):
        """Kills at each call that touches a file."""
        ends = collections.Counter()
        for form in FORMS:
            with Place(form) as place:
                for what, status in place.tries(CHANGES + LOOKS if road.LONG else FEW,
                                                ["signal=SIGKILL:when={}"]):
                    end = "only the previous one"
                    if place.is_version(place.target, place.old):
                        end = "the whole old one"
                    elif place.is_version(place.target,
                                          place.new if form.ends_well else place.bad):
                        end = "the whole new one"
                    else:
                        road.expect(form.is_folder and not form.has_exchange and
                                    not place.target.exists() and
                                    place.is_version(place.previous, place.old),
                                    f"neither old nor new: {what}")
                    ends[end] += 1
                    place.goes_on(what)
        road.tried(ends, "the next run replaced it and cleared what was left")

    @road.traced_by("strace")
    def test_apply_full(self):
        """A full disk at each call that may need room, from there on and for once."""
        ends = collections.Counter()
        for form in FORMS if road.LONG else FORMS[::2]:
            with Place(form) as place:
                for what, status in place.tries(
                        FILLING if road.LONG else FEW,
                        ["error=ENOSPC:when={}", "error=ENOSPC:when={}+"][:1 + road.LONG]):
                    road.expect(status in (0, 1), what)
                    end, expected = (("failed", place.old) if status else
                                     ("replaced all the same", place.new))
                    if " rename error" in what and ("cannot be brought back" in what or
                                                    " stays " in what):
                        end, expected = "failed to bring the old one back", place.bad
                        road.expect(place.is_version(place.previous, place.old), f"no old one: {what}")
                    road.expect(place.is_version(place.target, expected) or
                                expected is place.bad and not place.target.exists(),
                                f"another version: {what}")
                    left = {path.name for path in place.place.iterdir()}
                    road.expect(left <= {"app", "app.previous"}, f"left behind: {left}: {what}")
                    ends[end] += 1
                    place.goes_on(what)
        road.tried(ends, "nothing was left behind, and the next run replaced it")


if __name__ == "__main__":
    unittest.main(verbosity=2)
