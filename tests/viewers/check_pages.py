#!/usr/bin/env python3
"""Checks that viewers which are pages show of the command's exports what it answers itself.

usage: check_pages.py PROFILED QKMEM FOLDER
  FOLDER  has tests/viewers/pages, with what `npm ci` installs there
"""

import json
import os
import re
import sys
import tempfile

from check_exports import answer, export, record
from viewers import expect_equal, run

FIGURES = ("bytes", "blocks", "peak_bytes", "peak_blocks", "made_bytes", "made_blocks")
UNITS = {"B": 1, "KB": 1 << 10, "MB": 1 << 20}


def figures_by_site(command):
    """What the command says of each site of a handle."""
    sites = {(row["handle"], row["site"]): row for row in answer(command)["rows"]}
    for row in answer(command, "--at", "peak")["rows"]:
        sites[row["handle"], row["site"]]["peak_blocks"] = row["blocks"]
    return {key: [row[figure] for figure in FIGURES] for key, row in sites.items()}


def site_of(calls):
    """Handle and site of a point in DHAT's tree, where they are calls as well."""
    names = [call.partition(": ")[2] for call in calls]
    handle = next(name for name in names if name.startswith("handle:"))
    labels = [name.removeprefix("label:").replace("_", " ")
              for name in names if name.startswith("label:")]
    site = re.search(r"([^/( ]+:\d+)\)?$", names[-1])[1]
    return int(handle.removeprefix("handle:")), site + "".join(f" [{label}]" for label in labels)


def check_dhat(command, shown):
    sites = {}
    for point in shown["points"]:
        figures = sites.setdefault(site_of(point["calls"]), [0] * len(FIGURES))
        for i, figure in enumerate(FIGURES):
            figures[i] += point[figure]
    expect_equal("DHAT's figures of sites", sites, figures_by_site(command))
    end = answer(command)
    root = re.search(r"PP 1/.*?\{\n +Total: +([\d,]+) bytes .* in ([\d,]+) blocks"
                     r".*\n +At t-gmax: ([\d,]+) bytes.* in ([\d,]+) blocks"
                     r".*\n +At t-end: +([\d,]+) bytes.* in ([\d,]+) blocks", shown["shown"])
    expect_equal("what DHAT shows of all", [int(text.replace(",", "")) for text in root.groups()],
                 [end[key] for key in ("made_bytes", "made_blocks", "peak_bytes", "peak_blocks",
                                       "live_bytes", "live_blocks")])


def bytes_of(size):
    """The bytes that speedscope shows, and the error that its digits have."""
    number, unit = re.match(r"([\d.]+) (\S+)", size).groups()
    digits = len(number.partition(".")[2])
    return float(number) * UNITS[unit], UNITS[unit] / 10 ** digits if UNITS[unit] > 1 else 0


def check_speedscope(command, shown):
    by_handle = answer(command, "--by", "handle")["rows"]
    for text, name, figure in zip(shown, ("live at the end", "live at the peak", "ever made"),
                                  ("bytes", "peak_bytes", "made_bytes")):
        expect_equal("speedscope's title", f"{name} (" in text, True)
        totals = {symbol: total for total, symbol in re.findall(r"\n(.+) \(.*%\)\n\t.+\n\t(.+)", text)}
        for row in by_handle:
            expected = row[figure]
            handle = "handle:" + row["handle"].split()[0]
            if expected == 0:
                expect_equal(f"{name}: {handle}", handle in totals, False)
                continue
            found, error = bytes_of(totals[handle])
            expect_equal(f"{name}: {handle}: {found} for {expected}",
                         abs(found - expected) <= error, True)


def main():
    program, command, folder = map(os.path.abspath, sys.argv[1:])
    with tempfile.TemporaryDirectory() as files:
        os.chdir(files)
        record(program)
        dhat = os.path.abspath(export(command, "dhat", "run.dhat.json"))
        speedscope = os.path.abspath(export(command, "speedscope", "run.speedscope.json"))
        os.chdir(folder)
        shown = json.loads(run("node", "open_pages.mjs", dhat, speedscope))
        os.chdir(files)
        check_dhat(command, shown["dhat"])
        check_speedscope(command, shown["speedscope"])
    print("dh_view.html and speedscope show the figures of the command")


if __name__ == "__main__":
    main()
