#!/usr/bin/env python3
"""Checks that other programs find the same sums in all reports of a program's profile.

usage: check_profile.py PROFILED
"""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from viewers import expect_equal, missing, run

COLUMNS = ("made_blocks", "made_bytes", "live_blocks", "live_bytes")


def report(program, rounds, options, name, *growth):
    """Returns the path of the report of a run."""
    environment = dict(os.environ, QK_MEM_PROFILE=f"{options} REPORT={name}.%i")
    ended = subprocess.run([program, str(rounds), *growth], env=environment, capture_output=True)
    expect_equal("exit code and output", (ended.returncode, ended.stdout, ended.stderr),
                 (0, b"", b""))
    return pathlib.Path(f"{name}.1")


def pprof(*arguments):
    return run("go", "tool", "pprof", *map(str, arguments)).decode("utf-8")


def sums_of_pprof(profile):
    rows = re.findall(r"^ +(-?\d+) +(-?\d+) +(-?\d+) +(-?\d+): ", pprof("-raw", profile),
                      re.MULTILINE)
    return [sum(map(int, column)) for column in zip(*rows)]


def check_json(program):
    figures = json.loads(report(program, 3, "SITES FORMAT=JSON", "sites").read_text())
    expect_equal("sums", [figures[name] for name in COLUMNS], [12, 12450, 9, 12300])
    expect_equal("sums of the sites", [sum(site[name] for site in figures["sites"])
                                       for name in COLUMNS], [12, 12450, 9, 12300])
    expect_equal("handles", [(row["handle"], row["tag"], row["live_bytes"])
                             for row in figures["handles"]], [(1, "", 0), (2, "", 9000),
                                                              (3, "AB", 3300)])
    expect_equal("peak of the whole", sum(site["bytes_at_peak"] for site in figures["sites"]),
                 figures["peak_bytes"])
    expect_equal("labels", {site.get("label") for site in figures["sites"]},
                 {None, 'keeping "some"'})


def check_pprof(program):
    for options in ("SITES", "STACKS"):
        three = report(program, 3, f"{options} FORMAT=PPROF", options + "3")
        expect_equal(f"sums of {options}", sums_of_pprof(three), [12, 12450, 9, 12300])
        one = report(program, 1, f"{options} FORMAT=PPROF", options + "1")
        top = pprof("-top", "-unit=B", f"-base={one}", three)
        total = re.search(r" of (\d+)B? total$", top, re.MULTILINE)[1]
        expect_equal(f"growth from one round to three with {options}", int(total), 8200)
    trees = pprof("-traces", report(program, 1, "STACKS FORMAT=PPROF", "trees"))
    expect_equal("callers of the labelled blocks",
                 re.findall(r"label: .*?profiled.cpp:\d+\s+(?:\S*::)?(\w+)\S*\s+(?:\S*::)?(\w+)",
                            trees, re.DOTALL), [("take", "keep_some")] * 2)


def check_growth(program):
    report(program, 3, "SITES FORMAT=JSON", "grown", "growth.json")
    growth = json.loads(pathlib.Path("growth.json").read_text())
    expect_equal("growth", (growth["made_blocks"], growth["made_bytes"], growth["grown_blocks"],
                            growth["grown_bytes"]), (8, 8300, 5, 7700))
    expect_equal("growth of the sites", [sum(site[name] for site in growth["sites"])
                                         for name in ("grown_blocks", "grown_bytes")], [5, 7700])
    expect_equal("shrinkage", [site["grown_bytes"] for site in growth["sites"]
                               if site["grown_bytes"] < 0], [-500])
    for options in ("SITES", "STACKS"):
        report(program, 3, f"{options} FORMAT=PPROF", "grown", "growth.pb")
        expect_equal(f"growth with {options}", sums_of_pprof("growth.pb"), [8, 8300, 5, 7700])
        top = pprof("-top", "-unit=B", "growth.pb")
        shrunk = re.findall(r"^ *(-\d+B) .*  (profiled.cpp:\d+)$", top, re.MULTILINE)
        expect_equal(f"shrinkage with {options}", [amount for amount, _ in shrunk], ["-500B"])


def check_metrics(program):
    metrics = report(program, 3, "FORMAT=OPENMETRICS", "metrics").read_text()
    run("promtool", "check", "metrics", given=metrics.encode())
    samples = re.findall(r'^(\w+)\{program="profiled",pid="\d+"(.*)\} (\d+)$', metrics,
                         re.MULTILINE)
    expect_equal("metrics", samples, [
        ("qkmem_tag_bytes", ',tag=""', "9000"),
        ("qkmem_tag_bytes", ',tag="AB"', "3300"),
        ("qkmem_handle_bytes", ',handle="1",tag=""', "0"),
        ("qkmem_handle_bytes", ',handle="2",tag=""', "9000"),
        ("qkmem_handle_bytes", ',handle="3",tag="AB"', "3300"),
        ("qkmem_handle_blocks", ',handle="1",tag=""', "0"),
        ("qkmem_handle_blocks", ',handle="2",tag=""', "3"),
        ("qkmem_handle_blocks", ',handle="3",tag="AB"', "6"),
        ("qkmem_allocations_total", "", "12"),
        ("qkmem_peak_bytes", "", "12300"),
        ("qkmem_untracked_bytes", "", "0"),
    ])


def main():
    for tool in ("go", "promtool"):
        if not shutil.which(tool):
            missing(tool)
    program = os.path.abspath(sys.argv[1])
    with tempfile.TemporaryDirectory() as folder:
        os.environ["PPROF_TMPDIR"] = folder
        os.chdir(folder)
        check_json(program)
        check_pprof(program)
        check_growth(program)
        check_metrics(program)
        os.chdir("/")


main()
