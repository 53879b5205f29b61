#!/usr/bin/env python3
"""Runs programs without faults under the checks, which must find nothing.

usage: faultless_test.py PROGRAM...

Each argument is a command: a program and its arguments, separated by blanks.
"""

import os
import pathlib
import subprocess
import sys
import tempfile

WAYS = ("GUARD FILL QUARANTINE", "GUARD=48 QUARANTINE=4K SCAN=500")


def finding_of(command, checks):
    """What is wrong with what the checks say of a program. Empty if it is as it should be."""
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("QK_MEM_")}
    with tempfile.TemporaryDirectory() as folder:
        report = pathlib.Path(folder) / "report"
        environment["QK_MEM_CHECK"] = f"{checks} REPORT={report}"
        result = subprocess.run(command.split(" "), cwd=folder, env=environment, timeout=100,
                                stdin=subprocess.DEVNULL, capture_output=True, text=True,
                                check=False)
        said = report.read_text() if report.exists() else "nothing"
    if result.returncode == 0 and said.startswith("qkmem: no misuse and no damage in "):
        return ""
    return f"{command} under {checks}: {result.returncode}\n{said}{result.stderr}"


def main():
    found = [finding for command in sys.argv[1:] for checks in WAYS
             if (finding := finding_of(command, checks))]
    print("\n".join(found), end="")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
