#!/usr/bin/env python3
"""Kills zvupdate, at random moments and at each call that touches a file, and runs it again until
it is done: what is on disk is kept, and is not fetched again."""

import collections
import itertools
import random
import signal
import time

import road


class Ledger:
    """The lengths of the partial file between the runs, against where the service saw downloads
    begin: a run that has added to the file must have asked for what was missing, and only that."""

    def __init__(self, way):
        self.way = way
        self.begun = collections.Counter()
        self.grown = collections.Counter()

    def run(self, until=lambda: False, **how):
        """One run, killed when that comes true; says whether it was killed, so or otherwise."""
        before = self.length()
        process = self.way.start(**how)
        road.wait_until("the run ends", lambda: process.poll() is not None or until())
        process.kill()
        outcome = self.way.finish(process, may_end_by=signal.SIGKILL)
        self.way.holds()
        killed = outcome.status == -signal.SIGKILL
        road.expect(killed or (outcome.status == 0 and self.way.image.is_file()),
                    f"not done: {outcome}")

        kept = self.way.partial.read_bytes() if self.way.partial.exists() else b""
        road.expect(self.way.installer.startswith(kept),
                    "the partial file is not the beginning of the installer")
        self.begun[before] += 1
        self.grown[before] += self.length() > before
        return killed

    def length(self):
        return len(self.way.installer) if self.way.image.exists() else self.way.partial_size()

    def settle(self):
        def starts():
            return collections.Counter(self.way.starts())

        road.wait_until("the service has seen each download begin where the file ended",
                        lambda: not self.grown - starts())
        road.expect(not starts() - self.begun, f"begun elsewhere: {starts() - self.begun}")

def random_moments(options):
    """Kills at moments spread over the time that an undisturbed run takes, and at lengths of the
    file spread over what is still to come."""
    wanted = 200 if options.long else 6
    moments = random.Random(options.seed)
    kills = journeys = 0
    with road.Road(options, 64 * road.MIB) as way:
        ledger = Ledger(way)
        start = time.monotonic()
        way.check()
        usual = time.monotonic() - start
        ledger.begun[0] += 1

        def after_a_while():
            end = time.monotonic() + moments.uniform(0, usual)
            return lambda: time.monotonic() >= end

        def at_a_length():
            length = moments.uniform(way.partial_size(), len(way.installer))
            return lambda: way.partial_size() > length

        while kills < wanted:
            way.clear(with_settings=moments.random() < 0.5)
            mode = moments.choice(road.MODES)
            while ledger.run(moments.choice((after_a_while, at_a_length))(), mode=mode):
                kills += 1
            ledger.settle()
            journeys += 1
        resumed = ledger.grown.total() - ledger.grown[0]
    return kills, (f"{journeys} installers complete, {resumed} downloads resumed where the file on "
                   "disk ended and none elsewhere")

CHANGES = ("write", "pwrite64", "ftruncate", "fsync", "fdatasync", "linkat", "rename", "renameat2",
           "unlink", "mkdir", "flock", "fcntl", "fchmod", "chmod")
LOOKS = ("openat", "close", "access", "statx", "newfstatat")

def each_call(options):
    """Kills at the first, second, ... call of each kind, until a run has no more of it to offer.
    strace counts the calls of each thread, so what the main thread and the download do at the same
    time are selected by the files they concern; calls on nameless temporary files by no file."""
    road.no_strace_under_sanitizers(options)
    variants = 0
    with road.Road(options, 400_000) as way:
        ledger = Ledger(way)
        lock = way.settings_lock
        places = [((way.save, way.partial, way.image), CHANGES + LOOKS),
                  ((way.settings_folder, way.settings, lock), CHANGES + LOOKS),
                  ((), CHANGES)]
        if not options.long:
            places = [((way.partial, way.image), ("pwrite64", "renameat2")), ((), ("rename",))]
        for mode in road.MODES if options.long else ("session",):
            for paths, calls in places:
                for call in calls:
                    for number in itertools.count(1):
                        way.clear()
                        kill = road.strace("-e", f"inject={call}:signal=SIGKILL:when={number}",
                                           "-e", f"trace={call}", paths=paths)
                        if not ledger.run(mode=mode, wrapper=kill):
                            break
                        variants += 1
                        road.expect(not ledger.run(mode=mode), "killed by nobody")
                        ledger.settle()
    return variants, "one further run completes the installer, from where the file on disk ended"

if __name__ == "__main__":
    road.run(__doc__, {"random-moments": random_moments, "each-call": each_call})
