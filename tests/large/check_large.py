#!/usr/bin/env python3
"""Checks that the command reads long inputs in little memory.

usage: check_large.py LARGE_INPUT QKMEM FOLDER [BYTES]
  LARGE_INPUT  the program that makes inputs
  FOLDER       has room for a recording, which is removed
  BYTES        of each input, by default 10 GB
"""

import json
import os
import subprocess
import sys
import time

LIVE_BLOCKS = 1_000_000
MOST_MEMORY = 200_000_000


def run_measured(command, stdin):
    """Returns the output of a command that must succeed, its most bytes of memory, and seconds."""
    begin = time.monotonic()
    with subprocess.Popen(command, stdin=stdin, stdout=subprocess.PIPE) as process:
        output = process.stdout.read()
        _, status, used = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        sys.exit(f"{' '.join(command)} returned {process.returncode}")
    return output, used.ru_maxrss * 1024, time.monotonic() - begin


def check(what, command, stdin):
    output, memory, seconds = run_measured([command, "check", "--json", "--fail", *what[1:]], stdin)
    answer = json.loads(output)
    print(f"{what[0]}: {answer['events']:,} events, {answer['peak_blocks']:,} blocks at the peak: "
          f"{memory / 1e6:.0f} MB, {seconds:.0f} s")
    if answer["peak_blocks"] < 0.99 * LIVE_BLOCKS:
        sys.exit("too few blocks live at once")
    if memory > MOST_MEMORY:
        sys.exit(f"{memory / 1e6:.0f} MB are more than {MOST_MEMORY / 1e6:.0f}")


def main():
    large_input, command, folder = map(os.path.abspath, sys.argv[1:4])
    size = sys.argv[4] if len(sys.argv) > 4 else str(10_000_000_000)
    with subprocess.Popen([large_input, "table", "bytes", size, str(LIVE_BLOCKS)],
                          stdout=subprocess.PIPE) as table:
        check(("a trace file through a pipe", "-"), command, table.stdout)
    recording = os.path.join(folder, "large.qkm")
    try:
        with open(recording, "wb") as file:
            subprocess.run([large_input, "recording", "bytes", size, str(LIVE_BLOCKS)],
                           stdout=file, check=True)
        check(("a recording", recording), command, subprocess.DEVNULL)
    finally:
        os.unlink(recording)


if __name__ == "__main__":
    main()
