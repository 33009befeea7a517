#!/usr/bin/env python3
"""Measures the library beside its peers, in one run and in turn; see docs/performance.md."""

import argparse
import contextlib
import dataclasses
import json
import pathlib
import signal
import subprocess
import sys
import tempfile

import figures
import report
from measuring import Failed


@dataclasses.dataclass
class Bench:
    """What every figure needs to know."""

    bin: pathlib.Path
    folder: pathlib.Path  # In memory.
    disk: pathlib.Path  # On a disk's file system, where downloads go in real life.
    rounds: int
    divisor: int
    exits: contextlib.ExitStack

    def size(self, mebibytes):
        return mebibytes * 2**20 // self.divisor

    def file(self, name, size):
        """A file of that size, made once. What is in it makes no difference to anything here."""
        path = self.folder / name
        if not path.exists():
            block = bytes(range(256)) * 4096
            with open(path, "wb") as file:
                for start in range(0, size, len(block)):
                    file.write(block[: size - start])
        return path


def arguments():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--bin", type=pathlib.Path, default=pathlib.Path("build/bench/bin"),
                        help="folder with the programs; default build/bench/bin")
    parser.add_argument("--only", nargs="+", choices=figures.ALL, default=list(figures.ALL),
                        metavar="NAME", help="only these figures: " + ", ".join(figures.ALL))
    parser.add_argument("--rounds", type=int, default=9, help="how often each is measured")
    parser.add_argument("--quick", action="store_true", help="a sixteenth of all sizes, for trying")
    parser.add_argument("--output", type=pathlib.Path, default=pathlib.Path("build/bench"),
                        help="folder for bench.json and bench.svg; default build/bench")
    options = parser.parse_args()
    if options.rounds < 1:
        parser.error("--rounds must be at least 1")
    if not (options.bin / "bench-download").exists():
        parser.error(f"{options.bin} has no bench-download; build the preset \"bench\", or name "
                     "the folder of its programs with --bin")
    return options


def measure(options):
    rows = []
    for name in options.only:
        print(f"== {name}", file=sys.stderr)
        with contextlib.ExitStack() as exits:
            folder, disk = (pathlib.Path(exits.enter_context(
                tempfile.TemporaryDirectory(prefix="zvupdate-bench-", dir=parent)))
                for parent in ("/dev/shm", "/var/tmp"))
            bench = Bench(options.bin.resolve(), folder, disk, options.rounds,
                          16 if options.quick else 1, exits)
            rows += figures.ALL[name](bench)
    return rows


def main():
    options = arguments()
    machine = report.machine()
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))  # Cleans up on its way out.
    try:
        rows = measure(options)
    except (Failed, subprocess.CalledProcessError, TimeoutError) as error:
        sys.exit(f"bench: {error}")
    options.output.mkdir(parents=True, exist_ok=True)
    results = {"machine": machine, "rounds": options.rounds, "quick": options.quick,
               "rows": report.as_json(rows)}
    (options.output / "bench.json").write_text(json.dumps(results, indent=1, ensure_ascii=False))
    (options.output / "bench.svg").write_text(report.plot(rows))
    print(report.table(rows))
    if options.quick:
        print("\nAll sizes were a sixteenth of what is said: for trying, not for judging.")
    print(f"\n{machine['processor']}, {machine['cores']} cores, load at the start "
          f"{machine['load']}; {options.rounds} rounds; see {options.output}/bench.json, bench.svg")


if __name__ == "__main__":
    main()
