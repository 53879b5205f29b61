#!/usr/bin/env python3
"""Compares the number of instructions of the library's operations with stored figures.

usage: check_instructions.py PROGRAM FIGURES [WORKLOAD]
       check_instructions.py --update PROGRAM FIGURES

PROGRAM is the built bench/ratios. FIGURES has a line for each workload: its name and the
instructions per operation. Above them it names the compiler and the C library of the figures. Each
figure is the difference between a short and a long run under callgrind, divided by the difference
in operations, so that start-up doesn't count.

The exit code is 1 if a figure differs by more than a tenth: a higher count is a slow-down, and
after a lower one the old figure would hide the next slow-down. --update writes FIGURES for the same
workloads instead. The exit code is 77, which CTest shows as skipped, without valgrind and, unless
--update is given, with another compiler or C library.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys

MARGIN = 0.10
SKIPPED = 77
SHORT_RUN = 1000  # operations
LONG_RUN = 6000

HEAD = """\
# Instructions that one operation of a workload of bench/ratios takes, the system's allocator and the
# loop around it included. `scripts/bench --instructions` writes them anew.
"""


def environment():
    """The environment without variables that configure the library, the loader or malloc."""
    return {name: value for name, value in os.environ.items()
            if not name.startswith(("QK_MEM_", "LD_", "MALLOC_", "GLIBC_"))}


def output_of(*command):
    return subprocess.run(command, check=True, stdout=subprocess.PIPE, text=True).stdout


def instructions_of_run(program, workload, times):
    command = ["valgrind", "--tool=callgrind", "--callgrind-out-file=/dev/null",
               program, workload, "qkmem", str(times)]
    run = subprocess.run(command, stderr=subprocess.PIPE, text=True, env=environment())
    counted = re.search(r"Collected : (\d+)", run.stderr)
    if run.returncode != 0 or not counted:
        sys.exit(f"{' '.join(command)} failed:\n{run.stderr}")
    return int(counted[1])


def instructions(program, workload, operations):
    """Instructions per operation. A run of the workload consists of several operations."""
    short = max(1, round(SHORT_RUN / operations))
    long = max(short + 1, round(LONG_RUN / operations))
    more = (instructions_of_run(program, workload, long) -
            instructions_of_run(program, workload, short))
    return more / (long - short) / operations


def built_with(program):
    return ", ".join(output_of(program, "--build").splitlines())


def read(figures):
    """The compiler and C library of the figures, and the figures by workload."""
    lines = pathlib.Path(figures).read_text().splitlines()
    lines = [line for line in lines if line and not line.startswith("#")]
    return lines[0], {name: float(figure) for name, figure in map(str.split, lines[1:])}


def write(figures, build, counts):
    lines = [f"{name} {count:.1f}" for name, count in counts.items()]
    pathlib.Path(figures).write_text("\n".join([HEAD + build, *lines]) + "\n")


def verdict(count, figure):
    """Returns what is wrong with a count, or ""."""
    if count > figure * (1 + MARGIN):
        return "SLOWER"
    if count < figure * (1 - MARGIN):
        return "faster; store it with: scripts/bench --instructions"
    return ""


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--update", action="store_true")
    parser.add_argument("program")
    parser.add_argument("figures")
    parser.add_argument("workload", nargs="?", help="only this one")
    options = parser.parse_args()

    if not shutil.which("valgrind"):
        print("skipped: valgrind is not installed; scripts/setup installs it")
        return SKIPPED
    build, figures = read(options.figures)
    if not options.update and build != built_with(options.program):
        print(f"skipped: the figures are for {build}, not for {built_with(options.program)}")
        return SKIPPED
    if options.workload and not options.update:
        figures = {options.workload: figures[options.workload]}

    operations = {row[0]: float(row[2]) for row in
                  (line.split("\t") for line in output_of(options.program).splitlines())}
    counts = {}
    verdicts = []
    for name, figure in figures.items():
        counts[name] = instructions(options.program, name, operations[name])
        verdicts.append(verdict(counts[name], figure))
        print(f"{name:20}{figure:10.1f} before{counts[name]:10.1f} now  {verdicts[-1]}", flush=True)
    if options.update:
        write(options.figures, built_with(options.program), counts)
        return 0
    return 1 if any(verdicts) else 0


if __name__ == "__main__":
    sys.exit(main())
