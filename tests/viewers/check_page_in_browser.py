#!/usr/bin/env python3
"""Checks that a page shows in a browser what the command answers, whatever is done with it.

usage: check_page_in_browser.py MIXED LARGE_INPUT QKMEM FOLDER
  FOLDER  has tests/viewers/pages, with what `npm ci` installs there; pictures are left in it
"""

import json
import os
import re
import subprocess
import sys
import tempfile

from exported import RECORDING, Input, record
from page import Page
from viewers import expect_equal, run

LATER = "later.qkm"
LARGE = "large.qkm"
EVENTS = "1000000"
MOST_BYTES = {1: 600_000, 2: 900_000}  # of a page of so many runs


def number(text):
    return int(text.replace(",", "").replace(" B", "").replace("+", ""))


def column(table, title):
    """The figures of a column, by the row's line and handle."""
    place = table["titles"].index(title)
    return {(row[0], row[1].split()[0]): number(row[place]) for row in table["rows"]}


def by_site(rows, name):
    return {(row["site"], str(row["handle"])): row[name] for row in rows}


def check_sums(events, shown):
    """What is live at the peak and at the end, line by line, and below the table."""
    for what, table, arguments in (("peak", shown["first"]["table"], ("--at", "peak")),
                                   ("end", shown["end"]["table"], ())):
        answer = events.answer(*arguments)
        for title, name in (("live", "bytes"), ("blocks", "blocks")):
            expect_equal(f"{title} at the {what}", column(table, title),
                         by_site(answer["rows"], name))
            expect_equal(f"sum of {title} at the {what}",
                         number(table["sums"][table["titles"].index(title)]),
                         sum(row[name] for row in answer["rows"]))
    whole = shown["end"]["table"]
    expect_equal("made", column(whole, "made"), by_site(events.whole["rows"], "made_blocks"))
    expect_equal("bytes made", column(whole, "bytes made"),
                 by_site(events.whole["rows"], "made_bytes"))


def ends_of(address):
    words = dict(word.split("=") for word in address.lstrip("#").split("&"))
    return int(words.get("from", -1)), int(words["to"]), int(words["at"])


def check_part(page, what, view):
    """What was made in a part of the run, and how much has changed in it."""
    shown = page.runs[0]
    begin, end, at = ends_of(view["address"])
    expect_equal(f"{what} is a part", -1 < begin < at <= end, True)

    def between(figure):
        return lambda row, _: (shown.exact[row][figure][end] - shown.exact[row][figure][begin], 0)
    for title, figure in (("made", 3), ("bytes made", 2), ("change", 0)):
        expected = page.sums(shown, between(figure))
        found = {(line, int(handle)): (value, 0)
                 for (line, handle), value in column(view["table"], title).items() if value != 0}
        expect_equal(f"{title} in the {what}", found, expected)
    live = page.sums(shown, lambda row, _: (shown.exact[row][0][at], 0))
    found = {(line, int(handle)): (value, 0)
             for (line, handle), value in column(view["table"], "live").items() if value != 0}
    expect_equal(f"live in the {what}", found, live)


def check_views(page, shown):
    check_part(page, "part", shown["part"])
    check_part(page, "brushed part", shown["brushed"])
    expect_equal("a part changes the plot", shown["part"]["plot"] != shown["end"]["plot"], True)
    expect_equal("all again", {**shown["whole"], "address": 0},
                 {**shown["end"], "address": 0})
    expect_equal("a link shows the same", shown["linked"], shown["part"])
    before = ends_of(shown["before_peak"]["address"])[2]
    expect_equal("left of the peak", before, page.runs[0].facts["peak_moment"] - 1)
    tags = {row[1].partition(" ")[2] for row in shown["only"]["table"]["rows"]}
    expect_equal("rows of one tag", tags, {"CA"})
    expect_equal("boxes of one tag", shown["only"]["boxes"][0].startswith("CA\n"), True)
    found = [row[0] for row in shown["found"]["table"]["rows"]]
    expect_equal("rows of a function", found, ["mixed.cpp:22"])
    made = [number(row[6]) for row in shown["sorted"]["rows"]]
    expect_equal("sorted by blocks made", made, sorted(made, reverse=True))
    names = [row[0] for row in shown["sorted_by_name"]["rows"]]
    expect_equal("sorted by name", names, sorted(names))
    expect_equal("a stack", re.search(r"make_settings.*\n.*main", shown["stack"]) is not None, True)
    expect_equal("the plot's table", shown["plot_table"].startswith("Bytes over time\ntime\tCA"),
                 True)
    expect_equal("calls", any(call.startswith("main (mixed.cpp") for call in shown["end"]["calls"]),
                 True)


def check_change(command, shown):
    answer = json.loads(run(command, "diff", "--json", "-n", "0", RECORDING, LATER))
    found = {key: change for key, change in column(shown["table"], "change").items() if change != 0}
    expect_equal("changes", sorted(found.values()),
                 sorted(row["bytes_change"] for row in answer["rows"] if row["bytes_change"] != 0))
    before = Input(command, RECORDING).answer("--at", "peak")
    expect_equal("the first run", column(shown["before"], "live"), by_site(before["rows"], "bytes"))


def check_sizes(command, large_input):
    """Pages stay small however long the run."""
    with open(LARGE, "wb") as file:
        subprocess.run([large_input, "recording", "events", EVENTS, "50000"], stdout=file,
                       check=True)
    for runs, name in (([LARGE], "large.html"), ([LARGE, LARGE], "large_change.html")):
        run(command, "page", "-f", "-o", name, *runs)
        size = os.path.getsize(name)
        expect_equal(f"size of a page of {len(runs)} with {EVENTS} events each: {size}",
                     size <= MOST_BYTES[len(runs)], True)
        print(f"{size:,} bytes: {len(runs)} of {EVENTS} events")


def check_large(command, shown):
    """Of a long run few lines are shown at first, and all when they are asked for."""
    expect_equal("lines at first", shown["rows"], 40)
    rows = shown["all"]["rows"]
    expect_equal("lines and rests", len(rows) > 300, True)
    answer = Input(command, LARGE).answer("--at", "peak")
    expect_equal("the sum of a long run", sum(number(row[2]) for row in rows),
                 sum(row["bytes"] for row in answer["rows"]))


def main():
    program, large_input, command, folder = map(os.path.abspath, sys.argv[1:])
    pictures = os.path.join(folder, "pictures")
    os.makedirs(pictures, exist_ok=True)
    with tempfile.TemporaryDirectory() as files:
        os.chdir(files)
        record(program)
        environment = dict(os.environ, QK_MEM_PROFILE=f"RECORD={LATER} STACKS=8 REPORT=/dev/null")
        os.spawnve(os.P_WAIT, program, [program, "60"], environment)
        run(command, "page", "-o", "one.html", RECORDING)
        run(command, "page", "-o", "two.html", RECORDING, LATER)
        check_sizes(command, large_input)
        os.chdir(folder)
        shown = json.loads(run("node", "use_page.mjs", f"{files}/one.html", f"{files}/two.html",
                               pictures))
        os.chdir(files)
        expect_equal("requests and complaints", shown["troubles"], [])
        expect_equal("what readers can't use", shown["complaints"] + shown["change"]["complaints"],
                     [])
        page = Page("one.html")
        check_sums(Input(command, RECORDING), shown)
        check_views(page, shown)
        check_change(command, shown["change"])
        check_large(command, shown["large"])
        expect_equal("wider than a small screen", shown["is_too_wide"], False)
        for line in page.plain()[:40]:
            expect_equal(f"without script: {line}", line in shown["plain"], True)
        expect_equal("controls without script", "group by" in shown["plain"], False)
    print(f"the page shows the figures of the command, {shown['drawnAfter']:.0f} ms after it is "
          f"asked for, and {shown['large']['drawnAfter']:.0f} ms with {EVENTS} events; pictures of it "
          f"are in {pictures}")


if __name__ == "__main__":
    main()
