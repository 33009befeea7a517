#!/usr/bin/env python3
"""A host in Python: has zvupdate check for an update, tells how the download goes, lets zvupdate
show its window when the installer is ready, and hears what the user has chosen.

Needs nothing but Python's standard library, and zvupdate where programs are found. Copy what you
need; docs/helper-process.md says what else there is to know of zvupdate.
"""

import asyncio
import json
import os
import pathlib
import signal
import sys

# The identifier under which the update service knows this product, and the version that runs.
PRODUCT_ID = "SampleApp"
PRODUCT_VERSION = "2100"
PRODUCT_NAME = "Sample App"
# Whose preferences hold the user's wish to be updated.
APPLICATION = "Example/SampleApp"

DATA = pathlib.Path(os.environ.get("XDG_DATA_HOME") or pathlib.Path.home() / ".local" / "share")
COMMAND = [
    "zvupdate", "check", "--json",
    "--product-id", PRODUCT_ID,
    "--product-version", PRODUCT_VERSION,
    "--directory", str(DATA / APPLICATION / "updates"),
    "--application", APPLICATION,
    "--show-window", "--product-name", PRODUCT_NAME,
]
# An event is a line. The longest are those with release notes.
LONGEST_LINE = 64 << 20


def handle(event: dict) -> None:
    """Does what the application does with an event. One that is not known here is a newer
    zvupdate's, and means nothing to this host."""
    match event:
        case {"event": "result", "code": 3 | 4 | 6, "message": message}:
            print(message)
        case {"event": "offer", "version": version}:
            print(f"Version {version or '?'} is available.")
        case {"event": "progress", "received": received, "total": int(total)} if total > 0:
            print(f"Downloading: {100 * received // total} %")
        case {"event": "ready", "path": path}:
            print(f"Ready to install: {path}")
        case {"event": "window", "action": "update"}:
            print("The installer is open; the application would end now, to be replaced.")
        case {"event": "window", "action": "cancel"}:
            print("The user does not want it now.")
        case {"event": "window"}:
            print("The window was closed without a choice.")
        case {"event": "failed", "reason": reason}:
            print(reason, file=sys.stderr)


def stop(helper: asyncio.subprocess.Process) -> None:
    """Asks zvupdate to stop. What it has received is kept, and the next check goes on from there."""
    if helper.returncode is None:
        helper.terminate()


async def check() -> int:
    """One check, to its end. Returns zvupdate's exit status, which is negative when a signal has
    ended it that it does not handle."""
    helper = await asyncio.create_subprocess_exec(
        *COMMAND,
        stdin=asyncio.subprocess.DEVNULL,
        stdout=asyncio.subprocess.PIPE,
        limit=LONGEST_LINE,
        # With a session of its own it does not get the terminal's Ctrl-C, too.
        start_new_session=True)
    loop = asyncio.get_running_loop()
    for number in (signal.SIGINT, signal.SIGTERM, signal.SIGHUP):
        loop.add_signal_handler(number, stop, helper)

    async for line in helper.stdout:
        if line.endswith(b"\n"):  # The last one may have been cut off.
            handle(json.loads(line))
    return await helper.wait()


def main() -> int:
    sys.stdout.reconfigure(line_buffering=True)
    try:
        status = asyncio.run(check())
    except OSError as error:
        print(f"{COMMAND[0]} cannot be started: {error.strerror}; install it, or add its folder to "
              "PATH", file=sys.stderr)
        return 1
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main())
