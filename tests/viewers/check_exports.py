#!/usr/bin/env python3
"""Checks that viewers find in the command's exports what the command itself answers.

usage: check_exports.py PROFILED QKMEM
"""

import csv
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

from viewers import expect_equal, missing, run

ROUNDS = "40"
RECORDING = "run.qkm"


def record(program):
    environment = dict(os.environ, QK_MEM_PROFILE=f"RECORD={RECORDING} STACKS=8 REPORT=/dev/null")
    ended = subprocess.run([program, ROUNDS], env=environment, capture_output=True, check=False)
    expect_equal("exit code and output", (ended.returncode, ended.stdout, ended.stderr),
                 (0, b"", b""))


def answer(command, *arguments):
    return json.loads(run(command, "top", "--json", "-n", "0", *arguments, RECORDING))


def export(command, form, name, *arguments):
    run(command, "export", "--to", form, "-o", name, *arguments, RECORDING)
    return name


def pprof(*arguments):
    return run("go", "tool", "pprof", *arguments).decode("utf-8")


def check_pprof(command, end, peak):
    profile = export(command, "pprof", "run.pb.gz")
    rows = re.findall(r"^ +(\d+) +(\d+) +(\d+) +(\d+): ", pprof("-raw", profile), re.MULTILINE)
    expect_equal("sums of -raw", [sum(map(int, column)) for column in zip(*rows)],
                 [end["made_blocks"], end["made_bytes"], end["live_blocks"], end["live_bytes"]])
    top = pprof("-top", "-unit=B", "-sample_index=inuse_space", profile)
    expect_equal("cumulated bytes of a handle",
                 re.search(r"(\d+)B +\S+  handle:3$", top, re.MULTILINE)[1],
                 str(sum(row["bytes"] for row in end["rows"] if row["handle"] == 3)))
    # pprof leaves "(anonymous namespace)" out.
    flat = {name.lstrip(":"): int(size) for size, name in
            re.findall(r"^ +(\d+)B +\S+ +\S+ +\S+ +\S+  (\S+)", top, re.MULTILINE) if size != "0"}
    by_function = answer(command, "--by", "function")["rows"]
    expect_equal("bytes of functions", flat,
                 {row["function"]: row["bytes"] for row in by_function if row["bytes"] != 0})
    expect_equal("tags", re.findall(r"^ +tag: Total (\d+)", pprof("-tags", "-unit=B", profile),
                                    re.MULTILINE) != [], True)
    at_peak = export(command, "pprof", "peak.pb.gz", "--at", "peak")
    rows = re.findall(r"^ +\d+ +\d+ +(\d+) +(\d+): ", pprof("-raw", at_peak), re.MULTILINE)
    expect_equal("sums at the peak", [sum(map(int, column)) for column in zip(*rows)],
                 [peak["peak_blocks"], peak["peak_bytes"]])


def exact(figure):
    """A figure of heaptrack's, which has three digits, as the bytes that it can stand for."""
    number, unit = re.fullmatch(r"([\d.]+)([KM]?)B?", figure).groups()
    scale = {"": 1, "K": 1000, "M": 1000000}[unit]
    digits = len(number.partition(".")[2])
    return float(number) * scale, scale / 10 ** digits


def expect_about(what, figure, expected):
    number, step = exact(figure)
    expect_equal(f"{what}: {figure} for {expected}", abs(number - expected) <= step, True)


def check_heaptrack(command, end):
    printed = run("heaptrack_print", export(command, "heaptrack", "run.heaptrack")).decode("utf-8")
    calls = re.search(r"^calls to allocation functions: (\d+)", printed, re.MULTILINE)[1]
    expect_equal("calls", int(calls), end["made_blocks"])
    peak = re.search(r"^peak heap memory consumption: (\S+)$", printed, re.MULTILINE)[1]
    expect_about("peak", peak, end["peak_bytes"])
    leaked = re.search(r"^total memory leaked: (\S+)$", printed, re.MULTILINE)[1]
    expect_about("leaked", leaked, end["live_bytes"])


def check_massif(command, end):
    printed = run("ms_print", export(command, "massif", "massif.out.run")).decode("utf-8")
    trees = re.findall(r"^100\.00% \(([\d,]+)B\) \(heap allocation functions\)", printed,
                       re.MULTILINE)
    expect_equal("bytes at the peak and at the end",
                 sorted(int(tree.replace(",", "")) for tree in trees),
                 sorted([end["peak_bytes"], end["live_bytes"]]))


def check_texts(command, end):
    with open(export(command, "folded", "run.folded"), encoding="utf-8") as folded:
        expect_equal("bytes of all stacks", sum(int(line.rsplit(" ", 1)[1]) for line in folded),
                     end["live_bytes"])
    with open(export(command, "csv", "run.csv"), encoding="utf-8", newline="") as table:
        rows = list(csv.DictReader(table))
    expect_equal("bytes of all rows", sum(int(row["made_bytes"]) for row in rows),
                 end["made_bytes"])
    with open(export(command, "dhat", "run.dhat.json"), encoding="utf-8") as file:
        dhat = json.load(file)
    points = dhat["pps"]
    expect_equal("sums of DHAT's points",
                 [sum(point[key] for point in points) for key in ("tb", "tbk", "gb", "eb")],
                 [end["made_bytes"], end["made_blocks"], end["peak_bytes"], end["live_bytes"]])
    expect_equal("paths that are the same", len({tuple(point["fs"]) for point in points}),
                 len(points))
    with open(export(command, "speedscope", "run.speedscope.json"), encoding="utf-8") as file:
        profiles = json.load(file)["profiles"]
    expect_equal("weights of speedscope", [sum(profile["weights"]) for profile in profiles],
                 [end["live_bytes"], end["peak_bytes"], end["made_bytes"]])


def main():
    program, command = map(os.path.abspath, sys.argv[1:])
    for tool in ("go", "heaptrack_print", "ms_print"):
        if shutil.which(tool) is None:
            missing(tool)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["HOME"] = folder  # Go writes there
        record(program)
        end = answer(command)
        check_pprof(command, end, answer(command, "--at", "peak"))
        check_heaptrack(command, end)
        check_massif(command, end)
        check_texts(command, end)
        if shutil.which("promtool") is None:
            missing("promtool")
        with open(export(command, "openmetrics", "run.prom"), "rb") as metrics:
            run("promtool", "check", "metrics", given=metrics.read())


if __name__ == "__main__":
    main()
