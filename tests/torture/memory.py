#!/usr/bin/env python3
"""Looks at what zvupdate holds: memory during a large download and its verification, everything
after many checks, and what valgrind has to say."""

import road

GROWTH = 32 * road.MIB  # What a large installer may take more than a small one.
HEAP_NOISE = 64 << 10


def no_figures_under_sanitizers(options):
    if options.sanitized:
        raise road.Skip("a sanitizer keeps memory of its own")


def holdings(way, mode, *steps):
    """What many-checks prints after each step."""
    process = way.start(str(way.save), mode, *map(str, steps), program="many-checks")
    output, errors = process.communicate(timeout=10 * road.PATIENCE)
    road.expect(process.returncode == 0, f"status {process.returncode}: {errors}")
    way.holds()
    return [tuple(map(int, line.split())) for line in output.splitlines()]


def large_download(options):
    no_figures_under_sanitizers(options)
    size = (1024 if options.long else 64) * road.MIB
    growths = []
    for mode in road.MODES:
        highest = []
        for length in (road.MIB, size):
            with road.Road(options, length) as way:
                highest.append(holdings(way, mode, 1)[0][3])
        growths.append(highest[1] - highest[0])
        road.expect(growths[-1] <= GROWTH, f"{mode}: {highest[0]} bytes became {highest[1]}")
    more = " and ".join(f"{growth / road.MIB:.1f}" for growth in growths)
    return len(growths), f"{size // road.MIB} MiB took {more} MiB more than 1 MiB did"


def many_checks(options):
    no_figures_under_sanitizers(options)
    checks = 200 if options.long else 20
    grown = []
    with road.Road(options, road.MIB) as way:
        for mode in road.MODES:
            before, after = holdings(way, mode, 20, checks)
            road.expect(before[:2] == after[:2], f"threads and descriptors: {before}, {after}")
            grown.append(after[2] - before[2])
            road.expect(grown[-1] <= HEAP_NOISE, f"the heap: {before[2]} bytes became {after[2]}")
    return len(road.MODES) * checks, (f"threads and descriptors as they were, and the heap larger "
                                      f"by {' and '.join(map(str, grown))} bytes")


def valgrind(options):
    """The whole road, each way that a check can go."""
    if options.sanitized:
        raise road.Skip("valgrind cannot run a program built with a sanitizer")
    road.need("valgrind")
    memcheck = ["valgrind", "--quiet", "--error-exitcode=99", "--leak-check=full",
                "--show-leak-kinds=definite", "--errors-for-leak-kinds=definite"]
    half = road.MIB // 2

    def nothing(way):
        pass

    def part(way):
        way.partial.write_bytes(way.installer[:half])

    def spoilt(way):
        way.partial.write_bytes(bytes(road.MIB))

    def complete(way):
        way.partial.write_bytes(way.installer)

    def image(way):
        way.image.write_bytes(way.installer)

    ways = {nothing: 0, part: 0, spoilt: 1, complete: 0, image: 0}
    variants = 0
    with road.Road(options, road.MIB) as way:
        for mode in road.MODES:
            for prepare, expected in ways.items() if options.long else [(part, 0)]:
                way.clear()
                way.arrives()  # The preferences remember this installer.
                way.put_away(way.image)
                prepare(way)
                outcome = way.check(mode=mode, wrapper=memcheck)
                road.expect(outcome.status == expected and "==" not in outcome.errors,
                            f"{prepare.__name__}: {outcome}")
                way.holds()
                variants += 1
    return variants, "no invalid access, no use of undefined bytes, nothing definitely lost"


if __name__ == "__main__":
    road.run(__doc__, {"large-download": large_download, "many-checks": many_checks,
                       "valgrind": valgrind})
