#!/usr/bin/env python3
"""Looks at what zvupdate holds: memory during a large download and its verification, everything
after many checks, and what valgrind has to say."""

import contextlib
import http.client
import itertools
import shutil
import socketserver
import threading
import time
import urllib.parse

import road

GROWTH = 32 * road.MIB  # What a large installer may take more than a small one.
HEAP_NOISE = 64 << 10
MOST = 128 * road.MIB  # What a check may hold in all, whatever the service sends,
ROOM = 64 * road.MIB   # and what it leaves of the disk.

OK = b"HTTP/1.1 200 OK\r\n"
CHUNKS = b"Transfer-Encoding: chunked\r\n\r\n1\r\nx\r\n0\r\n"
LINES = b"X: y\r\n" * 10_000
# How each begins, and what comes again and again after that.
FLOODS = {
    "header lines": (OK, LINES),
    "interim replies": (b"", b"HTTP/1.1 100 Continue\r\n\r\n" * 10_000),
    "trailers": (OK + CHUNKS, LINES),
    "values": (OK + b"\r\n", b'{"a":[' + b"[[]]," * 10_000),
    "zeros": (OK + b"\r\n", bytes(road.MIB)),
}


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


@contextlib.contextmanager
def flooding(way, stage, flood):
    """A home whose service sends a flood as one of its four replies."""
    home = way.another_home()
    override = home / "Documents" / "ConsoleZVUpdate.mac"
    healthy = urllib.parse.urlsplit(override.read_text())
    beginning, again = FLOODS[flood]
    requests = itertools.count()

    class Handler(socketserver.StreamRequestHandler):
        def handle(self):
            method, target, _ = self.rfile.readline().decode().split()
            while self.rfile.readline().strip():
                pass
            with contextlib.suppress(OSError):
                if next(requests) != stage:
                    self.forward(method, target)
                    return
                self.wfile.write(beginning)
                while True:
                    self.wfile.write(again)

        def forward(self, method, target):
            service = http.client.HTTPConnection(healthy.netloc)
            service.request(method, target)
            reply = service.getresponse()
            length = f"Connection: close\r\nContent-Length: {reply.getheader('Content-Length')}"
            self.wfile.write(OK + length.encode() + b"\r\n\r\n" + reply.read())

    class Server(socketserver.ThreadingTCPServer):
        daemon_threads = True

    with Server(("127.0.0.1", 0), Handler) as server:
        threading.Thread(target=server.serve_forever).start()
        host, port = server.server_address
        override.write_text(healthy._replace(netloc=f"{host}:{port}").geturl())
        try:
            yield home
        finally:
            server.shutdown()
    shutil.rmtree(home)


def highest_memory(process):
    """The most that a process has held, looked at until it ends."""
    highest = 0
    deadline = time.monotonic() + road.PATIENCE
    while process.poll() is None and time.monotonic() < deadline:
        with contextlib.suppress(OSError), open(f"/proc/{process.pid}/status") as status:
            for line in status:
                if line.startswith("VmHWM:"):
                    highest = int(line.split()[1]) << 10
        time.sleep(0.001)
    return highest


def floods(options):
    """The reply to the check, to the token's, the size's and the download's request."""
    no_figures_under_sanitizers(options)
    road.leave_shared_mounts()
    variants = highest = taken = 0
    tried = itertools.product(range(4), FLOODS) if options.long else [(0, "trailers"), (3, "zeros")]
    with road.Road(options, road.MIB) as way:
        for stage, flood in tried:
            for mode in road.MODES:
                way.clear()
                with road.tmpfs(way.save, 80 * road.MIB), flooding(way, stage, flood) as home:
                    way.plant_older_image()
                    process = way.start(mode=mode, home=home)
                    held = highest_memory(process)
                    outcome = way.finish(process)
                    way.holds()
                    can_do_without = stage == 2
                    road.expect(outcome.status != 0 or can_do_without, f"{flood}: {outcome}")
                    room = shutil.disk_usage(way.save).free
                    road.expect(held <= MOST and room >= ROOM, f"{flood}: {held} held, {room} left")
                    highest = max(highest, held)
                    taken = max(taken, way.partial_size())
                    variants += 1
    return variants, (f"{highest / road.MIB:.0f} MiB held at most, and {taken / road.MIB:.1f} MiB "
                      f"of 80 taken on the disk")


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
                       "floods": floods, "valgrind": valgrind})
