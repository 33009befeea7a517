#!/usr/bin/env python3
"""A host in Python: has zvupdate check for an update, tells how the download goes, lets zvupdate
show its window when the installer is ready, hears what the user has chosen, and is replaced by the new
version, and started again.

Needs nothing but Python's standard library, and zvupdate and zvupdate-apply where programs are found. Copy what you
need; docs/helper-process.md says what else there is to know of zvupdate.
"""

import asyncio
import json
import os
import pathlib
import shlex
import signal
import sys

# The identifier under which the update service knows this product, and the version that runs.
PRODUCT_ID = "SampleApp"
PRODUCT_VERSION = "2100"
PRODUCT_NAME = "Sample App"
# Whose preferences hold the user's wish to be updated.
APPLICATION = "Example/SampleApp"

DATA = pathlib.Path(os.environ.get("XDG_DATA_HOME") or pathlib.Path.home() / ".local" / "share")
# Run when the user chooses "Update": waits for the end of this process, puts the new version in the
# place of this file, and starts it. What it refuses, it says on standard error.
ON_UPDATE = (f'zvupdate-apply --installer "$1" --replace {shlex.quote(os.path.abspath(__file__))} '
             f"--wait-for {os.getpid()} --restart --updated")
COMMAND = [
    "zvupdate", "check", "--json",
    "--product-id", PRODUCT_ID,
    "--product-version", PRODUCT_VERSION,
    "--directory", str(DATA / APPLICATION / "updates"),
    "--application", APPLICATION,
    "--show-window", "--product-name", PRODUCT_NAME, "--on-update", ON_UPDATE,
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
            print("The application ends now, to be replaced.")
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
    # Not after an update: if that did not last, the same would be offered at once again.
    if "--updated" in sys.argv:
        print(f"This is version {PRODUCT_VERSION}.")
        signal.pause()  # Where the application does its own work.
    try:
        status = asyncio.run(check())
    except OSError as error:
        print(f"{COMMAND[0]} cannot be started: {error.strerror}; install it, or add its folder to "
              "PATH", file=sys.stderr)
        return 1
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main())
