#!/usr/bin/env python3
"""Kills zvupdate, and lets it meet failing calls and other processes of its kind; and asks valgrind
about it."""

import collections
import contextlib
import itertools
import random
import signal
import subprocess
import time
import unittest

import road

CHANGES = ("write", "pwrite64", "ftruncate", "fsync", "fdatasync", "linkat", "rename", "renameat2",
           "unlink", "mkdir", "flock", "fcntl", "fchmod", "chmod")
LOOKS = ("openat", "close", "access", "statx", "newfstatat")
ERRORS = {
    "write": ("ENOSPC", "EIO"),
    "pwrite64": ("ENOSPC", "EIO", "EDQUOT", "EINTR"),
    "openat": ("ENOSPC", "EACCES", "EMFILE", "EIO"),
    "renameat2": ("EXDEV", "EIO", "EINVAL", "ENOSPC", "EACCES"),
    "rename": ("ENOSPC", "EXDEV"),
    "linkat": ("ENOSPC", "EPERM"),
    "unlink": ("EIO", "EROFS"),
    "mkdir": ("ENOSPC", "EACCES"),
    "fcntl": ("ENOLCK", "EAGAIN", "EINTR"),
    "flock": ("ENOLCK",),
    "close": ("EIO",),
    "newfstatat": ("EIO",),
    "statx": ("EIO",),
}


def faults_of(call, way, paths):
    """Kills, and errors: of one call alone, and of it and all after it."""
    yield "signal=SIGKILL:when={}"
    for error in ERRORS.get(call, ())[:None if road.LONG else 1] if paths else ():
        yield f"error={error}:when={{}}"
        # A write that is always said to be interrupted is repeated, as it should be; and Qt takes half
        # a minute at each lock that it could not remove.
        if error != "EINTR" and (call, paths[-1]) != ("unlink", way.settings_lock):
            yield f"error={error}:when={{}}+"


class Campaigns(unittest.TestCase):
    @road.traced_by("strace")
    def test_each_call(self):
        """Kills at the first, second, ... call of each kind, or has it fail, until a run has no
        more of it to offer. strace counts the calls of each thread, so what the main thread and the
        download do at the same time are selected by the files they concern; calls on nameless
        temporary files by no file."""
        ends = collections.Counter()
        with road.Road(400_000) as way:
            log = way.base / "strace.log"
            places = [((way.save, way.partial, way.image), CHANGES + LOOKS),
                      ((way.settings_folder, way.settings, way.settings_lock), CHANGES + LOOKS),
                      ((), CHANGES)]
            if not road.LONG:
                places = [((way.partial, way.image), ("pwrite64", "renameat2")), ((), ("rename",))]
            for mode, paths, call, fault in [
                    (mode, paths, call, fault) for paths, calls in places for call in calls
                    for mode in road.MODES[:1 + road.LONG] for fault in faults_of(call, way, paths)]:
                for number in itertools.count(1):
                    way.clear()
                    wrapper = road.strace("-e", f"trace={call}", "-e",
                                          f"inject={call}:{fault.format(number)}", paths=paths,
                                          log=log)
                    outcome = way.finish(way.start(mode, wrapper), may_end_by=signal.SIGKILL)
                    killed = outcome.status < 0
                    if not killed and "INJECTED" not in log.read_text():
                        break
                    way.holds()
                    # 2: what cannot be looked at is no directory for the update files.
                    worst = 2 if call == "statx" else 1
                    road.expect(outcome.status <= worst and
                                (outcome.status or way.image.is_file()), f"{call} {fault}: {outcome}")
                    kept = way.partial.read_bytes() if way.partial.exists() else b""
                    road.expect(not killed or way.installer.startswith(kept), f"{call}: {kept[:99]}")
                    before = way.starts().count(len(kept))
                    way.arrives(most_runs=1 if killed else 2)
                    end = "killed" if killed else "failed" if outcome.status else "complete"
                    if killed and 0 < len(kept) < len(way.installer):
                        road.wait_until("the service has seen a download begin where the file ended",
                                        lambda: way.starts().count(len(kept)) > before)
                        end = "killed, and resumed where the file ended"
                    ends[end] += 1
        road.tried(ends, "one further run completed what was killed, and two the others")

    def test_crowd(self):
        """Several processes at once on one directory, with the same and with different preferences;
        some are killed and the network of others breaks."""
        rounds = 500 if road.LONG else 2
        moments = random.Random(road.SEED)
        ends = collections.Counter()
        with road.Road(4 << 20) as way:
            homes = (None, way.another_home())
            start = time.monotonic()
            way.check()
            usual = time.monotonic() - start
            fates = ("nothing", "kill") if road.SANITIZED else ("nothing", "kill", "break")
            for number in range(rounds):
                way.clear(with_settings=moments.random() < 0.5)
                known = homes[:1 + number % 2]
                processes = []
                for fate in moments.choices(fates, k=moments.randint(2, 4)):
                    when = moments.randrange(1, 200)
                    broken = road.strace("--seccomp-bpf", "-e", "trace=recvfrom", "-e",
                                         f"inject=recvfrom:error=ECONNRESET:when={when}+")
                    processes.append((fate, way.start(moments.choice(road.MODES),
                                                      broken if fate == "break" else (),
                                                      home=moments.choice(known))))
                    time.sleep(moments.uniform(0, usual / 4))
                for fate, process in processes:
                    if fate == "kill":
                        with contextlib.suppress(subprocess.TimeoutExpired):
                            process.wait(moments.uniform(0, usual))
                        process.kill()
                for fate, process in processes:
                    expected = signal.SIGKILL if fate == "kill" else None
                    outcome = way.finish(process, may_end_by=expected)
                    # A check whose first question finds no network is told that there is no update.
                    road.expect(outcome.status in (0, 1, 3, -signal.SIGKILL), str(outcome))
                    ends[f"with status {outcome.status}"] += 1
                way.holds()
                # Who still downloads when another is done makes a file anew, and may be killed
                # then.
                way.arrives(home=moments.choice(known), may_leave=[way.partial])
        road.tried(ends, f"after each of {rounds} rounds at most two further checks brought it")

    @road.traced_by("valgrind")
    def test_valgrind(self):
        """The whole road, each way that a check can go."""
        ends = collections.Counter()
        memcheck = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
                    "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite"]
        with road.Road(road.MIB) as way:
            half, whole = way.installer[:road.MIB // 2], way.installer
            found = [(way.partial, half, 0), (way.partial, b"", 0),
                     (way.partial, bytes(road.MIB), 1), (way.partial, whole, 0),
                     (way.image, whole, 0)]
            for mode, (path, content, expected) in itertools.product(
                    road.MODES, found if road.LONG else found[:1]):
                way.clear()
                way.arrives()  # The preferences remember this installer.
                way.put_away(way.image)
                path.write_bytes(content)
                outcome = way.check(mode=mode, wrapper=memcheck)
                road.expect(outcome.status == expected and "==" not in outcome.errors, str(outcome))
                ends[f"with status {outcome.status}"] += 1
                way.holds()
        road.tried(ends, "no invalid access, no use of undefined bytes, nothing definitely lost")


if __name__ == "__main__":
    unittest.main(verbosity=2)
