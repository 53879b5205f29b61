#!/usr/bin/env python3
"""Checks that programs built with the recorded version run with this shared library.

usage: check_abi.py LIBRARY ROOT [--record]

LIBRARY is the shared library, built with debug information. abidiff compares its public functions
and types with ROOT/abi/qkmem-N.abi, where N is the number in its SONAME. What was added is fine,
and is in the record after the next --record, which writes it. A change that programs can notice
needs another SONAME, which comes with another major number of the version.

The exit code is 1 if something was changed or removed.
"""

import itertools
import pathlib
import re
import subprocess
import sys
import tempfile

# Without what differs from one build to another.
WRITTEN = ("--drop-private-types", "--exported-interfaces-only", "--no-corpus-path",
           "--no-comp-dir-path", "--no-show-locs", "--no-elf-needed", "--no-write-default-sizes")
UNIT_PATH = re.compile(r" path='[^']*'")


def described(library, root):
    """What is public in the library, as abidw writes it, with numbers for the paths of sources."""
    numbers = itertools.count(1)
    with tempfile.TemporaryDirectory() as folder:
        file = pathlib.Path(folder, "abi")
        subprocess.run(["abidw", *WRITTEN, "--headers-dir", root / "include/qkmem",
                        "--out-file", file, library], check=True)
        return UNIT_PATH.sub(lambda _: f" path='{next(numbers)}'", file.read_text())


def soname_number(library):
    dynamic = subprocess.run(["readelf", "-d", library], check=True, capture_output=True, text=True)
    found = re.search(r"SONAME.*\[libqkmem\.so\.(\d+)\]", dynamic.stdout)
    if not found:
        sys.exit(f"{library} has no SONAME libqkmem.so.N")
    return found[1]


def main():
    library, root = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2])
    record = root / f"abi/qkmem-{soname_number(library)}.abi"
    if "--record" in sys.argv[3:]:
        record.parent.mkdir(exist_ok=True)
        record.write_text(described(library, root))
        print(f"written: {record}")
        return 0
    if not record.exists():
        print(f"there is no {record}; write it with: scripts/test-install --record-abi")
        return 1
    with tempfile.TemporaryDirectory() as folder:
        now = pathlib.Path(folder, "now.abi")
        now.write_text(described(library, root))
        compared = subprocess.run(["abidiff", "--no-added-syms", record, now],
                                  capture_output=True, text=True)
    if compared.returncode != 0:
        print(compared.stdout + compared.stderr, end="")
        print(f"The library differs from {record}, which programs were built with: keep what was "
              "there, or raise the major number of the version.")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
