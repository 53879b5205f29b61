#!/usr/bin/env python3
"""Checks that viewers which are pages show of the command's exports what it answers itself.

usage: check_pages.py MIXED QKMEM FOLDER
  FOLDER  has tests/viewers/pages, with what `npm ci` installs there
"""

import json
import os
import re
import sys
import tempfile

from check_exports import MOMENTS, expect_stacks, name_in_speedscope
from exported import FIGURES, RECORDING, TRACE, Input, record, summed
from viewers import expect_equal, run

UNITS = {"B": 1, "KB": 1 << 10, "MB": 1 << 20}


def check_dhat(events, shown):
    paths = [tuple(call.partition(": ")[2] for call in reversed(point["calls"]) if
                   call != "[root]") for point in shown["points"]]
    expect_equal("paths that are the same", len(set(paths)), len(paths))
    for figure in FIGURES:
        expect_stacks("DHAT", dict(zip(paths, (point[figure] for point in shown["points"]))),
                      events.stacks(), figure)
    root = re.search(r"PP 1/.*?\{\n +Total: +([\d,]+) bytes .* in ([\d,]+) blocks"
                     r".*\n +At t-gmax: ([\d,]+) bytes.* in ([\d,]+) blocks"
                     r".*\n +At t-end: +([\d,]+) bytes.* in ([\d,]+) blocks", shown["shown"])
    expect_equal("what DHAT shows of all", [int(text.replace(",", "")) for text in root.groups()],
                 [events.whole[key] for key in ("made_bytes", "made_blocks", "peak_bytes",
                                                "peak_blocks", "live_bytes", "live_blocks")])


def bytes_of(size):
    """The bytes that speedscope shows, and the error that its digits have."""
    number, unit = re.match(r"([\d.]+) (\S+)", size).groups()
    digits = len(number.partition(".")[2])
    return float(number) * UNITS[unit], UNITS[unit] / 10 ** digits if UNITS[unit] > 1 else 0


def weights_of(profile, frames):
    """Stacks with their bytes, of a profile as speedscope saves it: frames begin and end."""
    stack = []
    before = 0
    for event in profile["events"]:
        if stack:
            yield tuple(reversed(stack)), event["at"] - before
        before = event["at"]
        if event["type"] == "O":
            stack.append(frames[event["frame"]])
        else:
            expect_equal("the frame that ends", frames[event["frame"]], stack.pop())


def check_speedscope(events, shown):
    saved = shown["saved"]
    frames = [name_in_speedscope(frame) for frame in saved["shared"]["frames"]]
    for profile, figure in zip(saved["profiles"], MOMENTS.values(), strict=True):
        expect_stacks("speedscope", summed(weights_of(profile, frames)), events.stacks(), figure)
    by_handle = events.rows("--by", "handle")
    for text, name, figure in zip(shown["tables"],
                                  ("live at the end", "live at the peak", "ever made"),
                                  MOMENTS.values(), strict=True):
        expect_equal("speedscope's title", f"{name} (" in text, True)
        rows = re.findall(r"\n(.+) \(.*%\)\n\t.+\n\t(.+)", text)
        totals = {symbol: total for total, symbol in rows}
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
        inputs = [Input(command, name) for name in (RECORDING, TRACE)]
        exports = [os.path.abspath(events.export(form, f"{events.name}.{form}.json"))
                   for events in inputs for form in ("dhat", "speedscope")]
        os.chdir(folder)
        pages = json.loads(run("node", "open_pages.mjs", *exports))
        os.chdir(files)
        for events, shown in zip(inputs, pages, strict=True):
            check_dhat(events, shown["dhat"])
            check_speedscope(events, shown["speedscope"])
    print("dh_view.html and speedscope show the figures of the command")


if __name__ == "__main__":
    main()
