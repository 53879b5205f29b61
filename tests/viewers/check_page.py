#!/usr/bin/env python3
"""Checks that a page has the figures that the command answers, and is all that it needs.

usage: check_page.py MIXED QKMEM
"""

import base64
import hashlib
import json
import os
import sys
import tempfile

from exported import RECORDING, ROUNDS, TRACE, Input, record
from page import Page
from viewers import expect_equal, run

LATER = "later.qkm"
REPORT = "run.json"
ASKED_MOMENTS = 12


def rows_of(answer, names=("bytes", "blocks")):
    rows = {(row["site"], row["handle"]): tuple(row[name] for name in names)
            for row in answer["rows"]}
    return {key: figures for key, figures in rows.items() if any(figures)}


def write_page(command, name, *inputs):
    run(command, "page", "-f", "-o", name, *inputs)
    return Page(name)


def time_of(shown, moment):
    return f"{moment}ns" if shown.facts["clock"] == "nanoseconds" else str(moment)


def check_sums(events, page, shown):
    """At the end, at the peak, ever, and at moments in between."""
    expect_equal("at the end", page.sums(shown, lambda _, row: row["live"]),
                 rows_of(events.whole))
    expect_equal("at the peak", page.sums(shown, lambda _, row: row["at_peak"]),
                 rows_of(events.answer("--at", "peak")))
    expect_equal("ever made", page.sums(shown, lambda _, row: row["made"]),
                 rows_of(events.answer("--at", "ever")))
    step = max(len(shown.moments) // ASKED_MOMENTS, 1)
    for moment in list(range(0, len(shown.moments), step)) + [len(shown.moments) - 1]:
        asked = events.answer("--at", time_of(shown, shown.moments[moment]))
        what = f"{events.name} at {shown.moments[moment]}"
        live = page.sums(shown, lambda row, _: (shown.exact[row][0][moment],
                                                shown.exact[row][1][moment]))
        made = page.sums(shown, lambda row, _: (shown.exact[row][2][moment],
                                                shown.exact[row][3][moment]))
        expect_equal(what, live, rows_of(asked))
        expect_equal(f"made until {what}", made, rows_of(asked, ("made_bytes", "made_blocks")))


def check_levels(events, shown):
    """The curve has the peak of the whole, and that of each row."""
    step = events.whole["peak_bytes"] / shown.steps
    highest = max(map(sum, zip(*shown.levels))) * step
    expect_equal(f"the curve's peak: {highest}",
                 abs(highest - events.whole["peak_bytes"]) <= step / 2 * len(shown.rows), True)
    for row, levels, mores in zip(shown.rows, shown.levels, shown.mores):
        most = max(map(sum, zip(levels, mores))) * step
        expect_equal(f"the row's peak: {most} for {row}",
                     abs(most - row["own_peak"][0]) <= step, True)
        expect_equal("what is more than the level", min(mores) >= 0, True)


def hash_of(text):
    return "sha256-" + base64.b64encode(hashlib.sha256(text.encode()).digest()).decode()


def check_policy(page):
    """The page may run its script and its style, and nothing else."""
    policy = page.between('http-equiv="Content-Security-Policy" content="', '"')
    expect_equal("policy", policy,
                 f"default-src 'none'; script-src '{hash_of(page.between('<script>', '</script>'))}'; "
                 f"style-src '{hash_of(page.between('<style>', '</style>'))}'; "
                 "base-uri 'none'; form-action 'none'")


def check_words(page):
    """Without the script there are verdict and tables, and names are no tags."""
    verdict = page.between("<h1>", "</h1>")
    expect_equal("verdict", verdict,
                 "10.2 KiB in 83 blocks were never released; mixed.cpp:23 has 39% of it")
    plain = page.plain()
    for title in ("what is left", "what held the peak", "what churns", "who has most"):
        expect_equal(title, title in plain, True)
    expect_equal("label", 'mixed.cpp:21 [<b>all</b> "names"; 50% & more]' in plain, True)
    expect_equal("tag of a label", "<b>all" in page.text, False)


def run_with(profile, program, rounds):
    environment = dict(os.environ, QK_MEM_PROFILE=profile)
    expect_equal("exit code", os.spawnve(os.P_WAIT, program, [program, rounds], environment), 0)


def check_snapshot(events, shown):
    """The program takes it when the cache is full, which is a moment after the peak."""
    [snapshot] = shown.facts["snapshots"]
    expect_equal("snapshot", snapshot["name"], "the cache is full")
    live = events.answer("--at", f"{snapshot['time']}ns")
    expect_equal("what is live at the snapshot", live["live_blocks"],
                 events.answer("--at", "peak")["peak_blocks"])


def check_change(command, page):
    """Of two runs, both have the same lines, and their difference is that of the command."""
    before, after = (page.sums(shown, lambda _, row: row["live"]) for shown in page.runs)
    found = {key: after.get(key, (0, 0))[0] - before.get(key, (0, 0))[0]
             for key in before.keys() | after.keys()}
    answer = json.loads(run(command, "diff", "--json", "-n", "0", RECORDING, LATER))
    changes = sorted(row["bytes_change"] for row in answer["rows"] if row["bytes_change"] != 0)
    expect_equal("changes", sorted(change for change in found.values() if change != 0), changes)


def check_profile(command, events):
    """A profile's report has no curve, but the sums at the end and at the peak."""
    page = write_page(command, "report.html", REPORT)
    shown = page.runs[0]
    expect_equal("levels of a report", shown.has_levels, False)
    expect_equal("a report's end", page.sums(shown, lambda _, row: row["live"]),
                 rows_of(events.whole))


def main():
    program, command = map(os.path.abspath, sys.argv[1:])
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        record(program)
        for name in (RECORDING, TRACE):
            events = Input(command, name)
            page = write_page(command, "one.html", name)
            check_sums(events, page, page.runs[0])
            check_levels(events, page.runs[0])
            check_policy(page)
        page = write_page(command, "one.html", RECORDING)
        check_words(page)
        check_snapshot(Input(command, RECORDING), page.runs[0])
        run_with(f"RECORD={LATER} STACKS=8 REPORT=/dev/null", program, "60")
        check_change(command, write_page(command, "two.html", RECORDING, LATER))
        run_with(f"PEAK FORMAT=JSON REPORT={REPORT}", program, ROUNDS)
        check_profile(command, Input(command, RECORDING))
    print("pages have the figures of the command")


if __name__ == "__main__":
    main()
