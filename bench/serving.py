"""Figures about connections, and about the development service."""

import asyncio
import hashlib
import json
import re
import resource
import urllib.parse

import relay
import servers
from measuring import Failed, Row, compare, race, run
from sealing import seal
from transfers import MIB, check_command, download_url, post, seconds_of, serve

CHECK = "cmd=checkupd&id=Bench&ver=1"
CLIENTS = 1000
CONNECTIONS = 64


def connections(bench):
    url, log = serve(bench, 8 * MIB)
    servers.point_clients_to(url, bench.folder)
    saved = bench.folder / "saved"

    def exchanges_of_a_check(fewest):
        before = log.read_text().count("\n")
        run(check_command(bench, saved), bench.folder)
        # A line is written once its exchange is over, which the client may learn first.
        servers.wait_for(lambda: log.read_text().count("\n") >= before + fewest,
                         f"the log has {fewest} more lines")
        return log.read_text().splitlines()[before:]

    lines = exchanges_of_a_check(4)
    if sum(" GET " in line for line in lines) != 1:
        raise Failed(f"the service has logged something else than one download: {lines}")
    yield Row(4, "connections of a check with its download", "",
              len({line.split()[1] for line in lines}), limit=1)
    yield Row(4, "exchanges of a check with its download", "", len(lines), limit=4)
    yield Row(4, "exchanges of a check that finds the installer", "",
              len(exchanges_of_a_check(1)), limit=1)

    parts = urllib.parse.urlsplit(url)
    delayed = bench.exits.enter_context(relay.DelayRelay(parts.port, 0.020).running())
    far = url.replace(f":{parts.port}", f":{delayed.port}")
    size_url = download_url(bench, url).replace(url, far)
    nothing = ("--silent", "--fail", "-o", "/dev/null")
    curl = ("curl", *nothing, "--data", "", far + seal(CHECK),
            "--next", *nothing, "--data", "", far + seal("cmd=gettoken"),
            "--next", *nothing, "--head", size_url)
    samples = race(bench.rounds, {
        "ours": seconds_of(bench.folder, bench.bin / "bench-exchanges", far),
        "curl": seconds_of(bench.folder, *curl)})
    yield compare(4, "three exchanges, 20 ms away", "ms", *(
        [second * 1000 for second in samples[name]] for name in ("ours", "curl")), "curl", 1.10)


def requests_a_second(bench, target, is_post=True):
    script = bench.folder / "post.lua"
    script.write_text('wrk.method = "POST"\nwrk.body = ""\n')
    options = ("-s", script) if is_post else ()

    def measured():
        output = run(("wrk", f"-c{CONNECTIONS}", "-t1", "-d3s", *options, target),
                     bench.folder).output
        if re.search(r"Non-2xx|Socket errors", output):
            raise Failed(f"wrk has met errors: {output}")
        return float(re.search(r"Requests/sec:\s*([\d.]+)", output).group(1))
    return measured


def service(bench):
    size = bench.size(1024)
    url, _ = serve(bench, size)
    root = bench.folder / "static"
    root.mkdir()
    (root / "reply").write_text(post(bench, url + seal(CHECK)))
    static = bench.exits.enter_context(servers.nginx(bench.folder, bench.folder / "nginx"))
    samples = race(bench.rounds, {"service": requests_a_second(bench, url + seal(CHECK)),
                                  "nginx": requests_a_second(bench, f"{static}static/reply", False)})
    yield compare(8, f"checks a second at {CONNECTIONS} connections", "1/s", samples["service"],
                  samples["nginx"], "nginx, static", limit=0.33, at_least=True)

    def speed(source):
        fetch = seconds_of(bench.folder, "curl", "--silent", "--fail", "-o", "/dev/null", source)
        return lambda: size / MIB / fetch()

    samples = race(bench.rounds, {"service": speed(download_url(bench, url)),
                                  "nginx": speed(f"{static}releases/installer")})
    yield compare(8, "1 GiB out", "MiB/s", samples["service"], samples["nginx"], "nginx", limit=0.8,
                  at_least=True)


def crowd(bench):
    """A thousand clients at once."""
    url, _ = serve(bench, MIB)
    soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
    resource.setrlimit(resource.RLIMIT_NOFILE, (min(hard, max(soft, CLIENTS + 100)), hard))
    digest = hashlib.md5((bench.folder / "releases" / "installer").read_bytes()).digest()
    served = asyncio.run(all_clients(urllib.parse.urlsplit(url), digest))
    yield Row(8, f"clients served, of {CLIENTS} at once", "", served, limit=CLIENTS, at_least=True)


async def all_clients(url, digest):
    results = await asyncio.gather(*(client(url, digest) for _ in range(CLIENTS)),
                                   return_exceptions=True)
    for trouble in {repr(result) for result in results if result is not True}:
        print(f"A client was lost: {trouble}")
    return results.count(True)


async def client(url, digest):
    """Checks, fetches a token and the installer over one connection, as the library does."""
    reader, writer = await asyncio.open_connection(url.hostname, url.port)
    try:
        async def ask(method, command):
            writer.write(f"{method} {url.path}?dt={seal(command)} HTTP/1.1\r\n"
                         f"Host: {url.netloc}\r\nContent-Length: 0\r\n\r\n".encode())
            header = (await reader.readuntil(b"\r\n\r\n")).decode()
            length = re.search(r"^content-length: (\d+)", header, re.M | re.I)
            body = await reader.readexactly(int(length.group(1)))
            if not header.startswith("HTTP/1.1 200 "):
                raise Failed(header.splitlines()[0])
            return body

        if not json.loads(await ask("POST", CHECK))["ok"]:
            raise Failed("no update is offered")
        token = json.loads(await ask("POST", "cmd=gettoken"))["id"]
        installer = await ask("GET", f"cmd=download&tk={token}&fn=Bench_2.exe")
        return hashlib.md5(installer).digest() == digest
    finally:
        writer.close()
