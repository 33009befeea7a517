"""Running programs against the clock, several in turn, and what is made of the times."""

import dataclasses
import os
import shutil
import statistics
import time


class Failed(Exception):
    """A program that was to be measured did not do its work."""


@dataclasses.dataclass
class Ran:
    seconds: float
    cpu: float  # Seconds of the processor.
    output: str


def run(argv, folder, **environment):
    """Runs a program to its end; its output goes to a file, as a pipe would have to be read."""
    output = folder / "output"
    program = shutil.which(str(argv[0]))
    if program is None:
        raise Failed(f"{argv[0]} is not installed")
    actions = [(os.POSIX_SPAWN_OPEN, 1, output, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600),
               (os.POSIX_SPAWN_DUP2, 1, 2)]
    # Proxies, locale and preferences of the user's own take no part.
    clean = {"PATH": os.environ["PATH"], "HOME": str(folder), "LC_ALL": "C.UTF-8"} | environment
    start = time.perf_counter()
    process = os.posix_spawn(program, [str(part) for part in argv], clean, file_actions=actions)
    _, status, usage = os.wait4(process, 0)
    seconds = time.perf_counter() - start
    text = output.read_text(errors="replace")
    if status != 0:
        raise Failed(f"{' '.join(map(str, argv))}: status {os.waitstatus_to_exitcode(status)}: "
                     f"{text.strip()[-400:]}")
    return Ran(seconds, usage.ru_utime + usage.ru_stime, text)


def race(rounds, runners):
    """Lets every runner run once a round, so that noise hits all alike, and returns what each has
    returned, by name and round. The order is turned round from one round to the next, and a first
    round, which finds cold caches, is not counted."""
    results = {name: [] for name in runners}
    for number in range(rounds + 1):
        names = list(runners) if number % 2 == 0 else list(reversed(runners))
        for name in names:
            result = runners[name]()
            if number > 0:
                results[name].append(result)
    return results


@dataclasses.dataclass
class Row:
    """One line of the table. With a peer, what is limited is the ratio of ours to the peer's, else
    our value itself; a row without a limit only informs."""

    item: int
    what: str
    unit: str
    ours: float
    peer: float | None = None
    peer_name: str = ""
    spread: tuple[float, float] | None = None  # Of the ratio: the quartiles over the rounds.
    limit: float | None = None
    at_least: bool = False  # The limit is one from below.

    @property
    def ratio(self):
        return None if self.peer is None else self.ours / self.peer

    @property
    def limited(self):
        return self.ours if self.peer is None else self.ratio

    @property
    def reached(self):
        if self.limit is None:
            return None
        return self.limited >= self.limit if self.at_least else self.limited <= self.limit

    def part_of_limit(self, value):
        """1 on the limit, less on the good side of it."""
        return self.limit / value if self.at_least else value / self.limit


def quartiles(values):
    """The first and the third; of fewer than two values, the extremes."""
    if len(values) < 2:
        return min(values), max(values)
    first, _, third = statistics.quantiles(values, n=4, method="inclusive")
    return first, third


def compare(item, what, unit, ours, peer, peer_name, limit=None, at_least=False):
    """A row from samples of two that were taken in the same rounds."""
    pairs = [mine / other for mine, other in zip(ours, peer, strict=True)]
    return Row(item, what, unit, statistics.median(ours), statistics.median(peer), peer_name,
               quartiles(pairs), limit, at_least)


def fastest(samples, names):
    return min(names, key=lambda name: statistics.median(samples[name]))
