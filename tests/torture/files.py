#!/usr/bin/env python3
"""Lets zvupdate meet full disks, read-only ones, things in the place of its files, damaged
preferences, directories that go away and other processes of its kind."""

import collections
import contextlib
import fcntl
import itertools
import os
import random
import signal
import subprocess
import time

import road

KIB = 1 << 10
PAGE = os.sysconf("SC_PAGE_SIZE")
SIZE = 256 * KIB


def tmpfs(path, size):
    return road.mounted(path, "-t", "tmpfs", "-o", f"size={size},mode=755", "tmpfs")


def make_room(path):
    subprocess.run(["mount", "-o", "remount,size=16m", path], check=True)


def full_disk(options):
    """The save directory on disks from one page to more than enough."""
    road.leave_shared_mounts()
    variants = complete = 0
    with road.Road(options, SIZE) as way:
        pages = range(1, SIZE // PAGE + 4, 1 if options.long else 16)
        for count, mode in itertools.product(pages, road.MODES):
            way.clear()
            with tmpfs(way.save, count * PAGE):
                way.plant_older_image()
                outcome = way.check(mode=mode)
                way.holds()
                road.expect(outcome.status == (1 if (count - 1) * PAGE < SIZE else 0),
                            f"{count} pages: {outcome}")
                complete += outcome.status == 0
                make_room(way.save)
                way.arrives()
            variants += 1
    return variants, (f"{complete} had room and were complete at once; the others failed, and were "
                      "complete after at most two further runs when there was room")


def full_disk_for_copy(options):
    """Room for the download, but not for the copy that is made where the file system cannot
    rename."""
    road.leave_shared_mounts()
    road.no_strace_under_sanitizers(options)
    variants = complete = 0
    with road.Road(options, SIZE) as way:
        first = SIZE // PAGE + 1
        pages = range(first, 2 * first + 2, 1 if options.long else 32)
        no_rename = road.strace("-e", "trace=rename,renameat2", "-e",
                                "inject=rename,renameat2:error=EXDEV", paths=[way.partial])
        for count, mode in itertools.product(pages, road.MODES):
            way.clear()
            with tmpfs(way.save, count * PAGE):
                way.plant_older_image()
                outcome = way.check(mode=mode, wrapper=no_rename)
                way.holds()
                road.expect(outcome.status == (0 if way.image.exists() else 1), str(outcome))
                complete += outcome.status == 0
                make_room(way.save)
                way.arrives(most_runs=1)
            variants += 1
    return variants, (f"{complete} had room for both and were complete; the others left no image, "
                      "and were complete after one further run when there was room")


def full_disk_for_preferences(options):
    road.leave_shared_mounts()
    pages = range(0, 5)
    with road.Road(options, SIZE) as way:
        for count, mode in itertools.product(pages, road.MODES):
            way.clear()
            with tmpfs(way.settings_folder, 6 * PAGE):
                (way.settings_folder / "filler").write_bytes(bytes((6 - count) * PAGE))
                outcome = way.check(mode=mode)
                way.holds()
                road.expect(outcome.status == 0, f"{count} pages: {outcome}")
                way.put_away(way.image)
                way.put_away(way.settings_folder / "filler")
                way.arrives(most_runs=1)
    return len(pages) * len(road.MODES), "the installer is complete without the preferences, too"


FAILING_CALLS = {
    "write": ("ENOSPC", "EIO"),
    "pwrite64": ("ENOSPC", "EIO", "EDQUOT", "EINTR"),
    "openat": ("ENOSPC", "EACCES", "EMFILE", "EIO"),
    "renameat2": ("ENOSPC", "EIO", "EINVAL", "EXDEV", "EACCES"),
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


def failing_calls(options):
    """The first, second, ... call of each kind fails: that one alone, and it and all after it."""
    road.no_strace_under_sanitizers(options)
    calls = FAILING_CALLS if options.long else {"pwrite64": ["ENOSPC"], "renameat2": ["EIO", "EXDEV"]}
    variants = complete = 0
    with road.Road(options, SIZE) as way:
        log = way.base / "strace.log"
        lock = way.settings_lock
        places = [(way.save, way.partial, way.image), (way.settings_folder, way.settings, lock)]
        for paths in places if options.long else places[:1]:
            for call, errors in calls.items():
                for error, onwards in itertools.product(errors, ("", "+")):
                    # A write that is always said to be interrupted is repeated, as it should be.
                    if (error, onwards) == ("EINTR", "+"):
                        continue
                    # Qt takes half a minute at each lock that it could not remove.
                    if call == "unlink" and onwards and way.settings in paths:
                        continue
                    for number in itertools.count(1):
                        way.clear()
                        fault = road.strace(
                            "-e", f"trace={call}", "-e",
                            f"inject={call}:error={error}:when={number}{onwards}", paths=paths,
                            log=log)
                        outcome = way.check(wrapper=fault)
                        if "INJECTED" not in log.read_text():
                            break
                        variants += 1
                        way.holds()
                        # 2: what cannot be looked at is no directory for the update files.
                        allowed = (0, 1, 2) if call == "statx" else (0, 1)
                        road.expect(outcome.status in allowed, f"{call} {error} {number}: {outcome}")
                        road.expect(outcome.status > 0 or way.image.is_file(), str(outcome))
                        complete += outcome.status == 0
                        way.arrives()
    return variants, (f"{complete} were complete all the same, the others after at most two "
                      "further runs")


@contextlib.contextmanager
def read_only_file_system(path):
    with road.mounted(path, "--bind", str(path)):
        subprocess.run(["mount", "-o", "remount,ro,bind", path], check=True)
        yield


@contextlib.contextmanager
def read_only_directory(path):
    entries = [entry for entry in path.iterdir() if entry.is_file()]
    for entry in entries:
        entry.chmod(0o444)
    path.chmod(0o555)
    try:
        yield
    finally:
        path.chmod(0o755)
        for entry in entries:
            entry.chmod(0o644)


def leave(way, state):
    """What an earlier run has left, which the preferences remember."""
    way.arrives()
    if state == "image":
        return
    way.image.rename(way.partial)
    if state == "half":
        os.truncate(way.partial, SIZE // 2)
    elif state == "nothing":
        way.partial.unlink()


def try_read_only(way, read_only):
    """Expected is what is possible: an image that is there already is found."""
    states = ("nothing", "half", "whole", "image")
    for place, state, mode in itertools.product(("save", "settings_folder"), states, road.MODES):
        way.clear()
        leave(way, state)
        with read_only(getattr(way, place)):
            outcome = way.check(mode=mode)
        way.holds()
        possible = place == "settings_folder" or state == "image"
        road.expect(outcome.status == (0 if possible else 1), f"{place}, {state}: {outcome}")
        way.arrives()
    return 2 * len(states) * len(road.MODES)


def read_only_disk(options):
    road.leave_shared_mounts()
    with road.Road(options, SIZE) as way:
        return try_read_only(way, read_only_file_system), READ_ONLY_HELD


def read_only_folder(options):
    with road.Road(options, SIZE, unprivileged=True) as way:
        return try_read_only(way, read_only_directory), READ_ONLY_HELD


READ_ONLY_HELD = ("with the preferences read-only the installer is complete; with the save "
                  "directory read-only an image there is found, and anything else fails")

OBSTACLES = {
    "empty directory": lambda path, _: path.mkdir(),
    "full directory": lambda path, _: (path / "in" / "it").mkdir(parents=True),
    "dangling link": lambda path, outside: path.symlink_to(outside / "nothing"),
    "link to a file": lambda path, outside: path.symlink_to(outside / "treasure"),
    "hard link": lambda path, outside: os.link(outside / "treasure", path),
    "link to itself": lambda path, _: path.symlink_to(path),
    "pipe": lambda path, _: os.mkfifo(path),
}


def obstacles(options):
    """Something in the place of each file. The preferences are the user's, who may have put a link
    in their place, and Qt follows that; nothing else may be written through a link."""
    variants = 0
    tried = 2 if options.long else 1
    held = {}
    with road.Road(options, SIZE) as way:
        names = {"partial": way.partial, "image": way.image, "preferences": way.settings}
        for (name, path), (kind, put), remembered, mode in itertools.product(
                names.items(), OBSTACLES.items(), (False, True)[:tried], road.MODES[:tried]):
            if (name, kind) == ("preferences", "pipe"):
                continue  # Qt waits for its other end, in each program that uses settings.
            way.clear()
            if remembered:
                way.arrives()
                way.put_away(way.image)
            way.put_away(path)
            if name == "preferences":
                (way.settings_folder / "treasure").write_bytes(b"")
            put(path, way.settings_folder if name == "preferences" else way.outside)
            outcome = way.check(mode=mode)
            way.holds()
            road.expect(outcome.status in (0, 1), f"{kind} as {name}: {outcome}")
            road.expect(outcome.status == 1 or way.image.is_file(), f"{kind} as {name}: {outcome}")
            if "directory" in kind and name != "preferences":
                road.expect("A directory is in the place of the" in outcome.errors, str(outcome))
            if "directory" in kind and name == "image":
                fetched = way.fetched_whole()
                again = way.check(mode=mode)
                road.expect(again.status == 1 and way.fetched_whole() == fetched,
                            f"{kind} as {name}, fetched again: {again}")
            if (kind, name) == ("dangling link", "image"):
                road.expect(outcome.status == 0 and not path.is_symlink(), str(outcome))
            held.setdefault(outcome.status, set()).add(f"{kind} as {name}")
            way.clear()
            way.arrives(most_runs=1)
            variants += 1
    failed = ", ".join(sorted(held.get(1, ())))
    return variants, f"nothing was written through a link; no installer with: {failed}"


def remove(way, _):
    way.put_away(way.save)


def remake(way, _):
    way.put_away(way.save)
    way.save.mkdir()


def move_away(way, _):
    way.save.rename(way.save.with_name("save.moved"))


def replace(way, _):
    way.put_away(way.save)
    way.save.write_bytes(b"in the place of the directory")


def shorten(way, share):
    """To a part of what it is, as another program might, perhaps while it is digested."""
    with contextlib.suppress(FileNotFoundError):
        os.truncate(way.partial, int(way.partial_size() * share))


def vanishing(options):
    """The directory, or what is in the file, goes at random moments."""
    moments = random.Random(options.seed)
    variants = missed = 0
    with road.Road(options, 64 << 20 if options.long else 16 << 20) as way:
        start = time.monotonic()
        way.check()
        usual = time.monotonic() - start
        acts = (remove, remake, move_away, replace, shorten)
        for act, _ in itertools.product(acts, range(20 if options.long else 2)):
            way.clear()
            way.plant_older_image()
            process = way.start(mode=moments.choice(road.MODES))
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(moments.uniform(0, usual))
            if process.poll() is None:
                process.send_signal(signal.SIGSTOP)
                end = os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
                missed += end.si_code != os.CLD_STOPPED
            else:
                missed += 1
            act(way, moments.random())
            process.send_signal(signal.SIGCONT)
            outcome = way.finish(process)
            # What stands in the directory's place from the start is a wrong argument.
            road.expect(outcome.status < 2 or (act is replace and outcome.status == 2),
                        f"{act.__name__}: {outcome}")
            way.put_away(way.save.with_name("save.moved"))
            if act is shorten:
                way.holds()
            else:
                way.put_away(way.save)
                way.save.mkdir()
                way.plant_older_image()
            way.arrives(most_runs=3)
            variants += 1
    return variants - missed, "what was lost was fetched by the next runs"


def long_files(options):
    """The length of what is digested has 32 bits."""
    lengths = [(1 << 32) + 3, 1 << 32] + [(1 << 32) - 1] * options.long
    start = b"abc"
    with road.Road(options, len(start)) as way:
        for length in lengths:
            with open(way.tree / "tmp" / "long", "wb") as file:
                file.write(start)
                file.truncate(length)
            process = way.start("digest", "tmp/long")
            output, _ = process.communicate(timeout=road.PATIENCE)
            expected = road.digest_of_file(way.tree / "tmp" / "long", length % (1 << 32))
            road.expect(output.split()[:1] == [expected], f"{length} bytes: {output}")
            (way.tree / "tmp" / "long").unlink()

        # So it is taken for the installer of three bytes.
        with open(way.image, "wb") as file:
            file.write(way.installer)
            file.truncate(lengths[0])
        road.expect(way.check().status == 0 and way.image.stat().st_size == lengths[0], "refused")
    return len(lengths) + 1, "the digest is that of the first (length modulo 2^32) bytes"


def damages(way, sound, moments, rounds):
    """Preferences that are no longer what was written."""
    for length in range(len(sound)) if rounds > 10 else range(0, len(sound), 40):
        yield sound[:length]
    for _ in range(rounds):
        yield moments.randbytes(moments.randrange(4096))
        flipped = bytearray(sound)
        flipped[moments.randrange(len(flipped))] ^= 1 << moments.randrange(8)
        yield bytes(flipped)
    for value in (b"@Invalid()", b"@ByteArray(x)", b"@Variant(\\0\\0\\0\\x10\\xff", b"a, b, c", b"",
                  b"\xff\xfe", b'"', b"\\x", b"9" * 100_000):
        yield b"".join(line.split(b"=")[0] + b"=" + value + b"\n" if b"=" in line else line + b"\n"
                       for line in sound.splitlines())


def damaged_preferences(options):
    moments = random.Random(options.seed)
    variants = skipped = 0
    with road.Road(options, SIZE) as way:
        way.arrives()
        sound = way.settings.read_bytes()
        for damaged in damages(way, sound, moments, 100 if options.long else 3):
            way.clear()
            way.settings.write_bytes(damaged)
            way.partial.write_bytes(way.installer[:SIZE // 2])
            outcome = way.check()
            way.holds()
            # What is left may well read as "switched off".
            road.expect(outcome.status in (0, 6), f"{damaged!r}: {outcome}")
            skipped += outcome.status == 6
            switch = way.finish(way.start("preferences", "--automatic-updating", "on"))
            road.expect(switch.status == 0, f"{damaged!r}: {switch}")
            way.arrives(most_runs=1)
            variants += 1
    return variants, (f"{skipped} read as switched off, the others were complete at once; all work "
                      "again once the switch is set")


def crowd(options):
    """Several processes at once on one directory, with the same and with different preferences;
    some are killed and the network of others breaks."""
    rounds = 500 if options.long else 2
    moments = random.Random(options.seed)
    ends = collections.Counter()
    with road.Road(options, 4 << 20) as way:
        homes = (None, way.another_home())
        start = time.monotonic()
        way.check()
        usual = time.monotonic() - start
        fates = ("nothing", "kill") if options.sanitized else ("nothing", "kill", "break")
        for number in range(rounds):
            way.clear(with_settings=moments.random() < 0.5)
            known = homes[:1 + number % 2]
            processes = []
            for _ in range(moments.randint(2, 4)):
                fate = moments.choice(fates)
                reads = moments.randrange(1, 200)
                broken = road.strace("--seccomp-bpf", "-e", "trace=recvfrom", "-e",
                                     f"inject=recvfrom:error=ECONNRESET:when={reads}+")
                processes.append((fate, way.start(mode=moments.choice(road.MODES),
                                                  home=moments.choice(known),
                                                  wrapper=broken if fate == "break" else ())))
                time.sleep(moments.uniform(0, usual / 4))
            for fate, process in processes:
                if fate == "kill":
                    with contextlib.suppress(subprocess.TimeoutExpired):
                        process.wait(moments.uniform(0, usual))
                    process.kill()
            for fate, process in processes:
                outcome = way.finish(process, may_end_by=signal.SIGKILL if fate == "kill" else None)
                # A check whose first question finds no network is told that there is no update.
                road.expect(outcome.status in (0, 1, 3, -signal.SIGKILL), str(outcome))
                ends[outcome.status] += 1
            way.holds()
            ends["late"] += not way.image.exists()
            # Who still downloads when another is done makes a file anew, and may be killed then.
            way.arrives(home=moments.choice(known), may_leave=[way.partial])
            ends["left"] += way.partial.exists()
    started = sum(count for end, count in ends.items() if isinstance(end, int))
    return rounds, (f"of {started} processes {ends[0]} had the installer, "
                    f"{ends[-signal.SIGKILL]} were killed and the others failed; in {ends['late']} "
                    "rounds the checks afterwards brought it, of which two are enough; in "
                    f"{ends['left']} a partial file stayed beside it")


def halted(options):
    """A process stands still while it appends, with the file complete or not; another one comes."""
    tries = 25 if options.long else 2
    moments = random.Random(options.seed)
    variants = whole = 0
    with road.Road(options, 16 << 20) as way:
        homes = (None, way.another_home())
        acts = (signal.SIGCONT, signal.SIGKILL)
        for home, act, _ in itertools.product(homes, acts, range(tries)):
            process = halt_with_lock(way, moments)
            size = way.partial_size()
            outcome = way.check(home=home)
            road.expect(outcome.status == 1 and not way.image.exists(), f"{size}: {outcome}")
            road.expect(way.partial_size() == size, "the file was changed under the lock")
            process.send_signal(act)
            first = way.finish(process, may_end_by=act if act == signal.SIGKILL else None)
            road.expect(first.status == (0 if act == signal.SIGCONT else -act), str(first))
            way.arrives(home=home)
            whole += size == len(way.installer)
            variants += 1
    return variants, (f"the other one failed and changed nothing ({whole} times with the file "
                      "complete); continued, the first one completed it, and killed, further checks")


def halt_with_lock(way, moments):
    """A process that is stopped with the partial file locked, and not the preferences, too."""
    deadline = time.monotonic() + road.PATIENCE
    while True:
        road.expect(time.monotonic() < deadline, "no process was ever seen with the lock")
        way.clear()
        process = way.start(mode=moments.choice(road.MODES))
        from_size = moments.uniform(0, len(way.installer))
        while process.poll() is None:
            if way.partial_size() < from_size:
                continue
            process.send_signal(signal.SIGSTOP)
            end = os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
            if (end.si_code == os.CLD_STOPPED and way.lock_is_held() and
                    not way.settings_lock.exists()):
                return process
            process.send_signal(signal.SIGCONT)
            time.sleep(moments.uniform(0, 0.002))
        way.finish(process)


def locks_of_readers(options):
    """Whoever may read an old file, which others could read, has locks on it that a reader gets."""
    variants = 0
    with road.Road(options, 4 << 20) as way:
        half = len(way.installer) // 2
        for mode in road.MODES:
            way.arrives()
            way.put_away(way.image)
            way.partial.write_bytes(way.installer[:half])
            way.partial.chmod(0o644)
            with open(way.partial, "rb") as first, open(way.partial, "rb") as second:
                fcntl.flock(first, fcntl.LOCK_EX)
                fcntl.lockf(second, fcntl.LOCK_SH)
                outcome = way.check(mode=mode)
            way.holds()
            road.expect(outcome.status == 0, f"{mode}: {outcome}")
            road.expect(way.starts()[-1] == half, f"began at {way.starts()}")
            road.expect(way.image.stat().st_mode & 0o077 == 0, "others still may read it")
            way.clear()
            variants += 1
    return variants, "resumed and complete at once, and nobody else may read the file any more"


if __name__ == "__main__":
    road.run(__doc__, {
        "full-disk": full_disk,
        "full-disk-for-copy": full_disk_for_copy,
        "full-disk-for-preferences": full_disk_for_preferences,
        "failing-calls": failing_calls,
        "read-only-disk": read_only_disk,
        "read-only-folder": read_only_folder,
        "obstacles": obstacles,
        "vanishing": vanishing,
        "long-files": long_files,
        "damaged-preferences": damaged_preferences,
        "crowd": crowd,
        "halted": halted,
        "locks-of-readers": locks_of_readers,
    })
