#!/usr/bin/env python3
"""Kills zvupdate, and lets it meet full disks, failing calls, read-only directories, directories that
go away and other processes of its kind; and asks valgrind about it."""

import collections
import contextlib
import itertools
import os
import random
import signal
import subprocess
import time

import road

PAGE = os.sysconf("SC_PAGE_SIZE")
SIZE = 256 << 10

CHANGES = ("write", "pwrite64", "ftruncate", "fsync", "fdatasync", "linkat", "rename", "renameat2",
           "unlink", "mkdir", "flock", "fcntl", "fchmod", "chmod")
LOOKS = ("openat", "close", "access", "statx", "newfstatat")


def each_call(options):
    """Kills at the first, second, ... call of each kind, until a run has no more of it to offer.
    strace counts the calls of each thread, so what the main thread and the download do at the same
    time are selected by the files they concern; calls on nameless temporary files by no file."""
    road.no_strace_under_sanitizers(options)
    variants = resumed = 0
    with road.Road(options, 400_000) as way:
        places = [((way.save, way.partial, way.image), CHANGES + LOOKS),
                  ((way.settings_folder, way.settings, way.settings_lock), CHANGES + LOOKS),
                  ((), CHANGES)]
        if not options.long:
            places = [((way.partial, way.image), ("pwrite64", "renameat2")), ((), ("rename",))]
        for mode in road.MODES if options.long else ("session",):
            for paths, call in ((paths, call) for paths, calls in places for call in calls):
                for number in itertools.count(1):
                    way.clear()
                    kill = road.strace("-e", f"inject={call}:signal=SIGKILL:when={number}",
                                       "-e", f"trace={call}", paths=paths)
                    outcome = way.finish(way.start(mode, kill), may_end_by=signal.SIGKILL)
                    if outcome.status == 0:
                        break
                    way.holds()
                    kept = way.partial.read_bytes() if way.partial.exists() else b""
                    road.expect(outcome.status == -signal.SIGKILL and way.installer.startswith(kept),
                                f"{call} {number}: {len(kept)} bytes, {outcome}")
                    before = way.starts().count(len(kept))
                    way.arrives(most_runs=1)
                    variants += 1
                    if 0 < len(kept) < len(way.installer):
                        road.wait_until("the service has seen a download begin where the file ended",
                                        lambda: way.starts().count(len(kept)) > before)
                        resumed += 1
    return variants, f"one further run completes the installer; {resumed} resumed where the file ended"


def full_disk(options):
    """The save directory on disks from one page to more than enough: for the download, and where the
    file system cannot rename, for the copy as well."""
    road.leave_shared_mounts()
    variants = complete = 0
    with road.Road(options, SIZE) as way:
        no_rename = road.strace("-e", "trace=rename,renameat2", "-e",
                                "inject=rename,renameat2:error=EXDEV", paths=[way.partial])
        for wrapper, files in [((), 1)] + [(no_rename, 2)] * (not options.sanitized):
            need = files * SIZE // PAGE + 1  # One is the older image's.
            for count, mode in itertools.product(range(1, need + 3, 1 if options.long else 32),
                                                 road.MODES):
                way.clear()
                with road.tmpfs(way.save, count * PAGE) as make_room:
                    way.plant_older_image()
                    outcome = way.check(mode=mode, wrapper=wrapper)
                    way.holds()
                    road.expect(outcome.status == (0 if count >= need else 1),
                                f"{count} pages: {outcome}")
                    complete += outcome.status == 0
                    make_room()
                    way.arrives()
                variants += 1
    return variants, (f"{complete} had room and were complete at once; the others failed, and were "
                      "complete after at most two further runs when there was room")


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
        places = [(way.save, way.partial, way.image),
                  (way.settings_folder, way.settings, way.settings_lock)]
        for paths, (call, errors), onwards in itertools.product(
                places[:1 + options.long], calls.items(), ("", "+")):
            # Qt takes half a minute at each lock that it could not remove.
            if call == "unlink" and onwards and way.settings in paths:
                continue
            for error in errors:
                # A write that is always said to be interrupted is repeated, as it should be.
                if (error, onwards) == ("EINTR", "+"):
                    continue
                for number in itertools.count(1):
                    way.clear()
                    outcome = way.check(wrapper=road.strace(
                        "-e", f"trace={call}", "-e",
                        f"inject={call}:error={error}:when={number}{onwards}", paths=paths, log=log))
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
def read_only(path):
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


def read_only_folder(options):
    """Expected is what is possible: an image that is there already is found."""
    left = {"nothing": 0, "half": SIZE // 2, "whole": SIZE, "image": None}
    with road.Road(options, SIZE, unprivileged=True) as way:
        for folder, state, mode in itertools.product((way.save, way.settings_folder), left,
                                                     road.MODES):
            way.clear()
            way.arrives()  # The preferences remember this installer.
            if left[state] is not None:
                way.image.rename(way.partial)
                os.truncate(way.partial, left[state])
            with read_only(folder):
                outcome = way.check(mode=mode)
            way.holds()
            possible = folder == way.settings_folder or state == "image"
            road.expect(outcome.status == (0 if possible else 1), f"{folder}, {state}: {outcome}")
            way.arrives()
    return 2 * len(left) * len(road.MODES), (
        "with the preferences read-only the installer is complete; with the save directory "
        "read-only an image there is found, and anything else fails")


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


def usual_time(way):
    start = time.monotonic()
    way.check()
    return time.monotonic() - start


def vanishing(options):
    """The directory, or what is in the file, goes at random moments."""
    moments = random.Random(options.seed)
    variants = missed = 0
    with road.Road(options, 64 << 20 if options.long else 16 << 20) as way:
        usual = usual_time(way)
        acts = (remove, remake, move_away, replace, shorten)
        for act, _ in itertools.product(acts, range(20 if options.long else 2)):
            way.clear()
            way.plant_older_image()
            process = way.start(moments.choice(road.MODES))
            with contextlib.suppress(subprocess.TimeoutExpired):
                process.wait(moments.uniform(0, usual))
            if process.poll() is None:
                process.send_signal(signal.SIGSTOP)
                os.waitid(os.P_PID, process.pid, os.WSTOPPED | os.WEXITED | os.WNOWAIT)
            missed += process.poll() is not None
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
                remake(way, None)
                way.plant_older_image()
            way.arrives(most_runs=3)
            variants += 1
    return variants - missed, "what was lost was fetched by the next runs"


def crowd(options):
    """Several processes at once on one directory, with the same and with different preferences;
    some are killed and the network of others breaks."""
    rounds = 500 if options.long else 2
    moments = random.Random(options.seed)
    ends = collections.Counter()
    with road.Road(options, 4 << 20) as way:
        homes = (None, way.another_home())
        usual = usual_time(way)
        fates = ("nothing", "kill") if options.sanitized else ("nothing", "kill", "break")
        for number in range(rounds):
            way.clear(with_settings=moments.random() < 0.5)
            known = homes[:1 + number % 2]
            processes = []
            for fate in moments.choices(fates, k=moments.randint(2, 4)):
                broken = road.strace("--seccomp-bpf", "-e", "trace=recvfrom", "-e", "inject=recvfrom:"
                                     f"error=ECONNRESET:when={moments.randrange(1, 200)}+")
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
                outcome = way.finish(process, may_end_by=signal.SIGKILL if fate == "kill" else None)
                # A check whose first question finds no network is told that there is no update.
                road.expect(outcome.status in (0, 1, 3, -signal.SIGKILL), str(outcome))
                ends[outcome.status] += 1
            way.holds()
            # Who still downloads when another is done makes a file anew, and may be killed then.
            way.arrives(home=moments.choice(known), may_leave=[way.partial])
    return rounds, (f"of {ends.total()} processes {ends[0]} had the installer, "
                    f"{ends[-signal.SIGKILL]} were killed and the others failed; at most two "
                    "further checks brought it")


def valgrind(options):
    """The whole road, each way that a check can go."""
    if options.sanitized:
        raise road.Skip("valgrind cannot run a program built with a sanitizer")
    road.need("valgrind")
    memcheck = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
                "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite"]
    with road.Road(options, road.MIB) as way:
        half, whole = way.installer[:road.MIB // 2], way.installer
        found = [(way.partial, half, 0), (way.partial, b"", 0), (way.partial, bytes(road.MIB), 1),
                 (way.partial, whole, 0), (way.image, whole, 0)]
        tried = list(itertools.product(road.MODES, found if options.long else found[:1]))
        for mode, (path, content, expected) in tried:
            way.clear()
            way.arrives()  # The preferences remember this installer.
            way.put_away(way.image)
            path.write_bytes(content)
            outcome = way.check(mode=mode, wrapper=memcheck)
            road.expect(outcome.status == expected and "==" not in outcome.errors, str(outcome))
            way.holds()
    return len(tried), "no invalid access, no use of undefined bytes, nothing definitely lost"


if __name__ == "__main__":
    road.run(__doc__, {"each-call": each_call, "full-disk": full_disk,
                       "failing-calls": failing_calls, "read-only-folder": read_only_folder,
                       "vanishing": vanishing, "crowd": crowd, "valgrind": valgrind})
