"""Figures about what the library costs a host: linked, and at work on texts."""

import json
import re
import shutil
import statistics

import servers
from measuring import Failed, Row, compare, race, run
from transfers import MIB, fetching

KIB = 1024


def linked(bench):
    library = next(bench.bin.parent.glob("libZVUpdateCore.so.*.*.*"))
    stripped = bench.folder / "stripped"
    shutil.copy(library, stripped)
    run(("strip", stripped), bench.folder)
    yield Row(5, "the stripped library", "KiB", stripped.stat().st_size / KIB)
    relocations = run(("readelf", "--wide", "--relocs", stripped), bench.folder).output
    yield Row(5, "its relocations", "", len(re.findall(r"^[0-9a-f]{8,} ", relocations, re.M)))

    def host(kind):
        program = bench.bin / f"bench-host-{kind}"
        return lambda: json.loads(run((program,), bench.folder).output)

    rounds = bench.rounds * 3  # Each takes milliseconds.
    samples = race(rounds, {kind: host(kind) for kind in ("bare", "linked")})

    def median(kind, name):
        return statistics.median(sample[name] for sample in samples[kind])

    def extra(name):
        return median("linked", name) - median("bare", name)

    yield Row(5, "extra time from main to a configured controller", "ms", extra("milliseconds"),
              limit=2)
    yield Row(5, "threads before the first check", "", extra("threads"), limit=0)
    yield Row(5, "files and sockets before the first check", "", extra("files"), limit=0)
    yield Row(5, "extra resident memory", "MiB", extra("residentKiB") / KIB, limit=6)
    yield Row(5, "resident memory of the bare host", "MiB", median("bare", "residentKiB") / KIB)


def extremes(what, samples, least, limit=None):
    by_time = sorted((one for one in samples if one >= least),
                     key=lambda one: statistics.median(samples[one]))
    if len(by_time) < 2:
        raise Failed("there is no room in memory for two files to compare")
    return compare(7, what, "ns/byte", samples[by_time[-1]], samples[by_time[0]],
                   f"({by_time[-1] // MIB} against {by_time[0] // MIB} MiB)", limit)


def size(bench):
    """Time per byte and memory against size. The largest file is a little smaller than 4 GiB, since
    of one of 4 GiB no byte would count for the digest."""
    sizes = [bench.size(mebibytes) for mebibytes in (1, 4, 16, 64, 256, 1024, 4095)]
    room = shutil.disk_usage(bench.folder).free
    while sum(sizes) + sizes[-1] > room * 0.9:
        print(f"No room in memory for a file of {sizes.pop() // MIB} MiB; it is left out")
    url = bench.exits.enter_context(servers.nginx(bench.folder, bench.folder / "nginx"))
    target = bench.folder / "target"

    def measured(one):
        source = bench.file(f"file-{one}", one)
        argv = (bench.bin / "bench-download", "session", f"{url}{source.name}?dt=", target,
                "verify")
        fetch = fetching(bench, argv, target, one)
        return lambda: json.loads(fetch().output)

    samples = race(bench.rounds, {one: measured(one) for one in sizes})
    for work in ("download", "digest"):
        each, cpu = ({one: [sample[work][kind] / one * 1e9 for sample in samples[one]]
                      for one in sizes} for kind in (0, 1))
        for one in sizes:
            yield Row(7, f"{work} of {one / MIB:g} MiB", "ns/byte", statistics.median(each[one]))
        what = "dearest size from 64 MiB up against cheapest"
        yield extremes(f"{work} {what}", each, bench.size(64), limit=1.15)
        yield extremes(f"{work}, the same of the processor", cpu, bench.size(64))
    peaks = {one: max(sample["peakKiB"] for sample in samples[one]) / KIB for one in sizes}
    yield Row(7, "peak memory of the download, largest file", "MiB", peaks[sizes[-1]], limit=32)
    yield Row(7, "the same, smallest file", "MiB", peaks[sizes[0]])


def medians(bench, **environment):
    """Runs the micro-benchmarks; nanoseconds of the processor by name and length of the text."""
    repetitions = max(bench.rounds, 3)
    output = run((bench.bin / "bench-sealing", "--benchmark_format=json",
                  f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.02",
                  "--benchmark_enable_random_interleaving=true"), bench.folder,
                 **environment).output
    times = {}
    for result in json.loads(output[output.index("{"):])["benchmarks"]:
        if result.get("error_occurred"):
            raise Failed(f"{result['run_name']}: {result['error_message']}")
        if result["run_type"] == "iteration":
            name, _, length = result["run_name"].partition("/")
            times.setdefault((name, int(length or 0)), []).append(result["cpu_time"])
    return {key: statistics.median(values) for key, values in times.items()}


def flatness(median, name, what, limit=None):
    per_byte = {length: time / length for (of, length), time in median.items()
                if of == name and length >= KIB}
    dearest, cheapest = max(per_byte, key=per_byte.get), min(per_byte, key=per_byte.get)
    return Row(6, f"{name} {what}", "ns/byte", per_byte[dearest], per_byte[cheapest],
               f"({dearest} against {cheapest} bytes)", limit=limit)


def sealing(bench):
    """Sealing takes as long per byte for long texts as for short ones. A second run, which changes
    nothing but that the allocator keeps what is freed, shows the share of new memory pages."""
    median = medians(bench)
    kept = medians(bench, GLIBC_TUNABLES="glibc.malloc.mmap_threshold=2147483648:"
                                         "glibc.malloc.trim_threshold=4294967296")
    for name in ("seal", "unseal"):
        yield Row(6, f"{name} 16 bytes", "ns", median[name, 16])
        yield flatness(median, name, "dearest size from 1 KiB up against cheapest", limit=1.20)
        yield flatness(kept, name, "the same, freed memory kept")
    yield Row(6, "a signature of such a reply", "µs", median["checkSignature", 0] / 1000)
    yield Row(6, "a reply with three notes to a record", "µs", median["makeRecord", 0] / 1000,
              limit=20)
