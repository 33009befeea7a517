"""The results for people and for programs: a table, JSON and a plot."""

import dataclasses
import os
import platform
import re
import subprocess
from html import escape

COLUMNS = ("", "what", "ours", "peer", "ratio", "quartiles", "limit", "")


def amount(value, unit):
    if value is None:
        return ""
    digits = 0 if value >= 1000 or value == int(value) else 1 if value >= 100 else 3
    return f"{value:,.{digits}f} {unit}".rstrip()


def cells(row):
    limit = ""
    if row.limit is not None:
        unit = "" if row.peer is not None else row.unit
        limit = ("≥ " if row.at_least else "≤ ") + (
            f"{row.limit:.2f}" if row.peer is not None else amount(row.limit, unit))
    return (str(row.item), row.what, amount(row.ours, row.unit),
            f"{amount(row.peer, row.unit)} {row.peer_name}".strip(),
            "" if row.ratio is None else f"{row.ratio:.2f}",
            "" if row.spread is None else f"{row.spread[0]:.2f} to {row.spread[1]:.2f}",
            limit, {None: "", True: "reached", False: "MISSED"}[row.reached])


def table(rows):
    """A Markdown table whose columns also stand in line on a terminal."""
    lines = [COLUMNS] + [cells(row) for row in rows]
    widths = [max(len(line[i]) for line in lines) for i in range(len(COLUMNS))]
    text = ["| " + " | ".join(cell.ljust(width) for cell, width in zip(line, widths)) + " |"
            for line in lines]
    text.insert(1, "|" + "|".join("-" * (width + 2) for width in widths) + "|")
    return "\n".join(text)


def version_of(*argv):
    try:
        done = subprocess.run(argv, capture_output=True, text=True, check=False)
    except FileNotFoundError:
        return "missing"
    found = re.search(r"\d+\.\d[\w.]*", done.stdout + done.stderr)
    return found.group() if found else "unknown"


def machine():
    """What the figures depend on; nothing that names the machine."""
    with open("/proc/cpuinfo") as file:
        model = re.search(r"model name\s*: (.*)", file.read())
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES")
    peers = {"curl": "curl", "wget": "wget", "aria2": "aria2c", "coreutils": "md5sum"}
    return {
        "processor": model.group(1) if model else platform.machine(),
        "cores": os.cpu_count(),
        "memory": f"{memory / 2**30:.0f} GiB",
        "kernel": platform.release(),
        "load": ", ".join(f"{load:.1f}" for load in os.getloadavg()),
        "versions": {name: version_of(program, "--version") for name, program in peers.items()}
        | {"openssl": version_of("openssl", "version"),
           "nginx": version_of("/usr/sbin/nginx", "-v"),
           "wrk": version_of("wrk", "-v")},
    }


def as_json(rows):
    return [dataclasses.asdict(row) | {"ratio": row.ratio, "reached": row.reached} for row in rows]


def plot(rows):
    """All rows with a limit as bars, each in parts of its own limit, so that one line is the limit
    of all. Whiskers span the quartiles."""
    shown = [row for row in rows if row.limit]
    scale = 320  # Pixels from zero to the limit.
    longest = max([1.25] + [row.part_of_limit(value) for row in shown
                            for value in (row.limited, *(row.spread or ())) if value > 0])
    left, line = 380, 24
    width, height = left + int(min(longest, 4) * scale) + 90, len(shown) * line + 60
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{width}" height="{height}" '
             'font-family="sans-serif" font-size="12">',
             '<rect width="100%" height="100%" fill="white"/>']
    for number, row in enumerate(shown):
        y = 40 + number * line
        part = row.part_of_limit(row.limited) if row.limited > 0 else 0
        length = min(part, 4) * scale
        colour = "#4a7fb5" if row.reached else "#c8553d"
        parts.append(f'<text x="{left - 8}" y="{y + 12}" text-anchor="end">{escape(row.what)}'
                     f'</text><rect x="{left}" y="{y}" width="{length:.1f}" height="16" fill="{colour}"/>')
        if row.spread:
            ends = sorted(left + min(row.part_of_limit(value), 4) * scale for value in row.spread)
            parts.append(f'<path d="M{ends[0]:.1f} {y + 8}H{ends[1]:.1f}M{ends[0]:.1f} {y + 4}v8'
                         f'M{ends[1]:.1f} {y + 4}v8" stroke="black"/>')
            length = max(length, ends[1] - left)
        label = f"{row.ratio:.2f}" if row.ratio is not None else amount(row.ours, row.unit)
        parts.append(f'<text x="{left + length + 6:.1f}" y="{y + 12}">{escape(label)}</text>')
    parts.append(f'<path d="M{left + scale} 30V{height - 15}" stroke="black" stroke-dasharray="4"/>'
                 f'<text x="{left + scale}" y="22" text-anchor="middle">limit</text></svg>\n')
    return "\n".join(parts)
