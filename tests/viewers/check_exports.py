#!/usr/bin/env python3
"""Checks that viewers find in the command's exports what the command itself answers, of each site.

usage: check_exports.py MIXED QKMEM
"""

import csv
import json
import os
import re
import shutil
import sys
import tempfile

from exported import FIGURES, RECORDING, TRACE, Input, record, summed
from viewers import expect_equal, missing, run

MOMENTS = {"end": "bytes", "peak": "peak_bytes", "ever": "made_bytes"}


def expect_stacks(what, found, stacks, figure):
    """Compares figures by path with one of the command's."""
    expect_equal(f"{what}: {figure} of stacks", summed(found.items()),
                 summed((path, figures[figure]) for path, figures in stacks.items()))


def pprof(*arguments):
    return run("go", "tool", "pprof", *arguments).decode("utf-8")


def shown_by_pprof(profile, index):
    """What the functions have themselves, and what they have with all that they call."""
    top = pprof("-top", "-unit=B", "-nodefraction=0", f"-sample_index={index}", profile)
    rows = re.findall(r"^ +(\d+)B? +\S+ +\S+ +(\d+)B? +\S+  (\S+)", top, re.MULTILINE)
    # pprof leaves "(anonymous namespace)" out.
    return [{row[2].lstrip(":"): int(row[column]) for row in rows if row[column] != "0"}
            for column in (0, 1)]


def check_pprof(events):
    whole = events.whole
    profile = events.export("pprof", "run.pb.gz")
    rows = re.findall(r"^ +(\d+) +(\d+) +(\d+) +(\d+): ", pprof("-raw", profile), re.MULTILINE)
    expect_equal("sums of -raw", [sum(map(int, column)) for column in zip(*rows)],
                 [whole[key] for key in ("made_blocks", "made_bytes", "live_blocks",
                                         "live_bytes")])
    at_peak = events.export("pprof", "peak.pb.gz", "--at", "peak")
    # Where no function is known, the line that allocates stands for it.
    by = "function" if events.name == RECORDING else "site"
    functions = events.rows("--by", by)
    handles = events.rows("--by", "handle")
    for file, index, figure in ((profile, "inuse_space", "bytes"),
                                (profile, "inuse_objects", "blocks"),
                                (at_peak, "inuse_space", "peak_bytes"),
                                (at_peak, "inuse_objects", "peak_blocks"),
                                (profile, "alloc_space", "made_bytes"),
                                (profile, "alloc_objects", "made_blocks")):
        flat, cumulated = shown_by_pprof(file, index)
        expect_equal(f"pprof: {figure} of functions", flat,
                     summed((row[by], row[figure]) for row in functions))
        expect_equal(f"pprof: {figure} of handles",
                     {name: size for name, size in cumulated.items() if name[:7] == "handle:"},
                     summed(("handle:" + row["handle"].split()[0], row[figure])
                            for row in handles))
    expect_equal("tags", re.findall(r"^ +tag: Total (\d+)", pprof("-tags", "-unit=B", profile),
                                    re.MULTILINE) != [], events.name == RECORDING)


def exact(figure):
    """A figure of heaptrack's, which has three digits, as the bytes that it can stand for."""
    number, unit = re.fullmatch(r"([\d.]+)([KM]?)B?", figure).groups()
    scale = {"": 1, "K": 1000, "M": 1000000}[unit]
    digits = len(number.partition(".")[2])
    return float(number) * scale, scale / 10 ** digits


def expect_about(what, figure, expected):
    number, step = exact(figure)
    expect_equal(f"{what}: {figure} for {expected}", abs(number - expected) <= step, True)


def functions_of(path):
    """A stack as heaptrack writes it for flame graphs, without its lines and the types in C++."""
    return ";".join(re.sub(r" \(\S+:\d+\)$", "", frame) for frame in reversed(path))


def shown_by_heaptrack(file, cost):
    """The figures of stacks that heaptrack gives for flame graphs."""
    run("heaptrack_print", "-t", "0", "-F", "stacks.txt", "--flamegraph-cost-type", cost, file)
    with open("stacks.txt", encoding="utf-8") as lines:
        for line in lines:
            stack, figure = re.fullmatch(r"(.*); (\d+)\n", line).groups()
            stack = re.sub(r" \(\w+\.cpp\)(?=;|$)", "", stack)  # files
            yield re.sub(r"\(anonymous namespace\)::|\([\w*, ]*\)(?=;|$)", "", stack), int(figure)


def check_heaptrack(events):
    file = events.export("heaptrack", "run.heaptrack")
    printed = run("heaptrack_print", file).decode("utf-8")
    calls = re.search(r"^calls to allocation functions: (\d+)", printed, re.MULTILINE)[1]
    expect_equal("calls", int(calls), events.whole["made_blocks"])
    peak = re.search(r"^peak heap memory consumption: (\S+)$", printed, re.MULTILINE)[1]
    expect_about("peak", peak, events.whole["peak_bytes"])
    leaked = re.search(r"^total memory leaked: (\S+)$", printed, re.MULTILINE)[1]
    expect_about("leaked", leaked, events.whole["live_bytes"])
    stacks = events.stacks()
    for cost, figure in (("allocations", "made_blocks"), ("peak", "peak_bytes"),
                         ("leaked", "bytes")):
        expect_equal(f"heaptrack: {figure} of stacks", summed(shown_by_heaptrack(file, cost)),
                     summed((functions_of(path), figures[figure])
                            for path, figures in stacks.items()))


def trees_of_massif(printed):
    """For each tree the bytes of the paths at the ends of its branches."""
    trees = []
    path = []
    for line in printed.splitlines():
        if re.match(r"[\d.]+% .* \(heap allocation functions\)", line):
            trees.append({})
            path = []
            continue
        node = re.fullmatch(r"([| ]*)->[\d.]+% \(([\d,]+)B\) 0x1: (.*)", line)
        if node is None:
            continue
        depth = len(node[1]) // 2
        if depth > 0:
            trees[-1].pop(tuple(path[:depth]), None)  # no end
        path[depth:] = [node[3]]
        trees[-1][tuple(path)] = int(node[2].replace(",", ""))
    return trees


def check_massif(events):
    file = events.export("massif", "massif.out.run")
    trees = trees_of_massif(run("ms_print", "--threshold=0", file).decode("utf-8"))
    expect_equal("massif's trees", len(trees), 2)
    stacks = events.stacks()
    expect_stacks("massif", trees[0], stacks, "peak_bytes")
    expect_stacks("massif", trees[1], stacks, "bytes")


def check_folded(events):
    stacks = {tuple(frame.replace(";", ",") for frame in path): figures
              for path, figures in events.stacks().items()}
    for moment, figure in MOMENTS.items():
        with open(events.export("folded", "run.folded", "--at", moment), encoding="utf-8") as file:
            lines = [line.rstrip("\n").rpartition(" ") for line in file]
        found = {tuple(reversed(stack.split(";"))): int(size) for stack, _, size in lines}
        expect_equal("stacks that are the same", len(found), len(lines))
        expect_stacks("folded", found, stacks, figure)


def check_csv(events):
    with open(events.export("csv", "run.csv"), encoding="utf-8", newline="") as table:
        rows = list(csv.DictReader(table))
    for figure in FIGURES:
        column = "live_" + figure if figure in ("bytes", "blocks") else figure
        found = summed(((row["handle"], row["tag"], f"{os.path.basename(row['file'])}:"
                         f"{row['line']}" + (f" [{row['label']}]" if row["label"] else "")),
                        int(row[column])) for row in rows)
        expect_equal(f"csv: {figure} of sites", found,
                     summed(((str(row["handle"]), row.get("tag") or "", row["site"]), row[figure])
                            for row in events.rows()))


def check_dhat(events):
    with open(events.export("dhat", "run.dhat.json"), encoding="utf-8") as file:
        dhat = json.load(file)
    texts = [text.partition(": ")[2] for text in dhat["ftbl"]]
    points = {tuple(texts[frame] for frame in reversed(point["fs"])): point
              for point in dhat["pps"]}
    expect_equal("paths that are the same", len(points), len(dhat["pps"]))
    for key, figure in zip(("eb", "ebk", "gb", "gbk", "tb", "tbk"), FIGURES):
        expect_stacks("DHAT", {path: point[key] for path, point in points.items()},
                      events.stacks(), figure)


def name_in_speedscope(frame):
    """As the command names the frame."""
    name = re.sub(r"\(anonymous namespace\)::|\([\w*, ]*\)$", "", frame["name"])
    if "file" not in frame:
        return name
    place = f"{os.path.basename(frame['file'])}:{frame['line']}"
    return place if name == place else f"{name} ({place})"


def check_speedscope(events):
    with open(events.export("speedscope", "run.speedscope.json"), encoding="utf-8") as file:
        written = json.load(file)
    frames = [name_in_speedscope(frame) for frame in written["shared"]["frames"]]
    stacks = events.stacks()
    for profile, figure in zip(written["profiles"], MOMENTS.values(), strict=True):
        found = summed((tuple(frames[frame] for frame in reversed(sample)), weight)
                       for sample, weight in zip(profile["samples"], profile["weights"],
                                                 strict=True))
        expect_stacks(f"speedscope, {profile['name']}", found, stacks, figure)
        expect_equal("the end of " + profile["name"], profile["endValue"] - profile["startValue"],
                     sum(profile["weights"]))


def check_openmetrics(events):
    with open(events.export("openmetrics", "run.prom"), encoding="utf-8") as file:
        text = file.read()
    run("promtool", "check", "metrics", given=text.encode("utf-8"))
    for by, figure in (("tag", "bytes"), ("handle", "bytes"), ("handle", "blocks")):
        found = re.findall(rf'^qkmem_{by}_{figure}{{.*,{by}="([^"]*)".*}} (\d+)$', text,
                           re.MULTILINE)
        rows = [] if by == "tag" and events.name == TRACE else events.rows("--by", by)
        expect_equal(f"OpenMetrics: {figure} of {by}s", {key: int(size) for key, size in found},
                     {row[by].split()[0]: row[figure] for row in rows if row[by] != "no tag"})


def main():
    program, command = map(os.path.abspath, sys.argv[1:])
    for tool in ("go", "heaptrack_print", "ms_print"):
        if shutil.which(tool) is None:
            missing(tool)
    with tempfile.TemporaryDirectory() as folder:
        os.chdir(folder)
        os.environ["HOME"] = folder  # Go writes there
        record(program)
        inputs = [Input(command, name) for name in (RECORDING, TRACE)]
        for check in (check_folded, check_csv, check_dhat, check_speedscope, check_massif,
                      check_heaptrack, check_pprof):
            for events in inputs:
                check(events)
        if shutil.which("promtool") is None:
            missing("promtool")
        for events in inputs:
            check_openmetrics(events)


if __name__ == "__main__":
    main()
