"""Figures about whole files: their digests, their download, and the whole road of an update."""

import json
import shutil

import servers
from measuring import Failed, Row, compare, fastest, race, run
from sealing import seal

MIB = 2**20


def seconds_of(folder, *argv):
    return lambda: run(argv, folder).seconds


def parts_of(runs):
    """The times of runs by name, and the same of the processor alone."""
    return ({name: [ran.seconds for ran in of_one] for name, of_one in runs.items()},
            {name: [ran.cpu for ran in of_one] for name, of_one in runs.items()})


def digest(bench):
    zvupdate = bench.bin / "zvupdate"
    large = bench.file("large", bench.size(1024))
    samples, cpu = parts_of(race(bench.rounds, {
        "zvupdate": lambda: run((zvupdate, "digest", large), bench.folder),
        "md5sum": lambda: run(("md5sum", large), bench.folder),
        "openssl": lambda: run(("openssl", "md5", large), bench.folder),
    }))
    peer = fastest(samples, ("md5sum", "openssl"))
    yield compare(1, "digest of 1 GiB in the page cache", "s", samples["zvupdate"], samples[peer],
                  peer, limit=1.00)
    yield compare(1, "of that, processor time", "s", cpu["zvupdate"], cpu[peer], peer)

    both = race(bench.rounds, {
        "one pass": lambda: run((bench.bin / "bench-digest", large), bench.folder),
        "md5sum, then sha256sum": lambda: run(("sh", "-c", f"md5sum {large}; sha256sum {large}"),
                                              bench.folder),
    })
    samples, _ = parts_of(both)
    peer = "md5sum, then sha256sum"
    yield compare(1, "MD5 and SHA-256 of 1 GiB in one pass", "s", samples["one pass"],
                  samples[peer], peer, limit=0.75)

    small = bench.file("small", MIB)
    often = 10  # One run is too short to be a sample.

    def several(*argv):
        return lambda: sum(run(argv, bench.folder).seconds for _ in range(often)) / often * 1000

    samples = race(bench.rounds, {"zvupdate": several(zvupdate, "digest", small),
                                  "md5sum": several("md5sum", small)})
    yield compare(1, "digest of 1 MiB, start-up included", "ms", samples["zvupdate"],
                  samples["md5sum"], "md5sum", limit=1.5)


def fetching(bench, argv, target, size, start=0):
    """A runner that fetches a file, of which the first bytes are there, and looks at its size."""
    def fetch():
        if start:
            with open(target, "ab") as file:
                file.truncate(start)
        else:
            target.unlink(missing_ok=True)
        ran = run(argv, bench.folder)
        if target.stat().st_size != size:
            raise Failed(f"{argv[0]} fetched {target.stat().st_size} of {size} bytes")
        return ran
    return fetch


def download(bench):
    size = bench.size(1024)
    source = bench.file("large", size)
    url = bench.exits.enter_context(servers.nginx(bench.folder, bench.folder / "nginx"))
    target = bench.disk / "target"

    # nginx passes over what stands after the question mark, where the sealed command is.
    def ours(mode, path=target):
        return (bench.bin / "bench-download", mode, f"{url}{source.name}?dt=", path)

    def curl(path=target):
        return ("curl", "--silent", "--fail", "-o", path, f"{url}{source.name}")

    runs = race(bench.rounds, {name: fetching(bench, argv, target, size) for name, argv in {
        "session": ours("session"),
        "connection": ours("connection"),
        "curl": curl(),
        "wget": ("wget", "--quiet", "-O", target, f"{url}{source.name}"),
        "aria2c": ("aria2c", "--quiet", f"--dir={bench.disk}", f"--out={target.name}",
                   f"{url}{source.name}"),
    }.items()})
    samples, cpu = parts_of(runs)
    for peer, limit in (("curl", 0.90), ("wget", 0.5), ("aria2c", 0.35)):
        yield compare(2, f"download of 1 GiB against {peer}", "s", samples["session"],
                      samples[peer], peer, limit)
    yield compare(2, "of that, processor time against curl", "s", cpu["session"], cpu["curl"],
                  "curl")
    yield compare(2, "download of 1 GiB, connection mode", "s", samples["connection"],
                  samples["curl"], "curl", 0.90)
    for mode in ("session", "connection"):
        peak = max(json.loads(ran.output)["peakKiB"] for ran in runs[mode])
        yield Row(2, f"peak memory of that, {mode} mode", "MiB", peak / 1024, limit=32)

    half = size // 2
    samples, _ = parts_of(race(bench.rounds, {
        "session": fetching(bench, ours("session"), target, size, half),
        "curl": fetching(bench, (*curl(), "-C", "-"), target, size, half)}))
    yield compare(2, "resuming the second half of 1 GiB", "s", samples["session"],
                  samples["curl"], "curl -C -", 0.90)

    in_memory = bench.folder / "target"
    samples, _ = parts_of(race(bench.rounds, {
        "session": fetching(bench, ours("session", in_memory), in_memory, size),
        "curl": fetching(bench, curl(in_memory), in_memory, size)}))
    yield compare(2, "download of 1 GiB into a file in memory", "s", samples["session"],
                  samples["curl"], "curl")


def check_command(bench, saved):
    return (bench.bin / "zvupdate", "check", "--product-id", "Bench", "--product-version", "1",
            "--directory", saved)


def serve(bench, size):
    """Starts zvupdate-service with an installer of that size; returns its URL and its log."""
    releases = bench.folder / "releases"
    releases.mkdir()
    servers.write_releases(releases, bench.file("releases/installer", size))
    return bench.exits.enter_context(servers.service(
        bench.bin / "zvupdate-service", releases, bench.folder / "service"))


def post(bench, url):
    return run(("curl", "--silent", "--fail", "--data", "", url), bench.folder).output


def download_url(bench, url):
    """What the library asks for to download, with a token that is good."""
    token = json.loads(post(bench, url + seal("cmd=gettoken")))["id"]
    return url + seal(f"cmd=download&tk={token}&fn=Bench_2.exe")


def road(bench):
    url, _ = serve(bench, bench.size(1024))
    servers.point_clients_to(url, bench.folder)
    source = download_url(bench, url)
    saved = bench.disk / "saved"
    script = 'curl --silent --fail -o f "$1" && md5sum f && cp f g'

    def ours():
        shutil.rmtree(bench.folder / ".config", ignore_errors=True)
        shutil.rmtree(saved, ignore_errors=True)
        seconds = run(check_command(bench, saved), bench.folder).seconds
        if [path.name for path in saved.iterdir()] != ["Bench_2.dmg"]:
            raise Failed("zvupdate check has not left just the disk image")
        return seconds

    def theirs():
        shutil.rmtree(saved, ignore_errors=True)
        saved.mkdir()
        return run(("sh", "-c", f'cd "$2" && {script}', "sh", source, saved),
                   bench.folder).seconds

    samples = race(bench.rounds, {"zvupdate": ours, "shell": theirs})
    yield compare(3, "the whole road of 1 GiB", "s", samples["zvupdate"], samples["shell"],
                  "curl && md5sum && cp", 0.85)
