#!/usr/bin/env python3
"""Checks that all files that name the version of qkmem agree with include/qkmem/version.h.

usage: check_version.py ROOT

The others are the top entries of CHANGELOG.md and of packaging/debian/changelog, and two with the
major number in their names: the first node of the version script, and the record of what the
library offers to programs.
"""

import pathlib
import re
import sys

MACRO = re.compile(r"^#define QK_MEM_VERSION_(MAJOR|MINOR|PATCH) (\d+)\b", re.MULTILINE)
ENTRY = re.compile(r"^## (\S+)", re.MULTILINE)
RECORD = re.compile(r"^qkmem-(\d+)\.abi$")
DEBIAN_ENTRY = re.compile(r"\Aqkmem \(([^)-]+)(?:-[^)]*)?\) ")
NODE = re.compile(r"^QKMEM_(\S+) \{", re.MULTILINE)


def first(pattern, path):
    """What the pattern's group matches in the file, or a word for its absence."""
    found = pattern.search(path.read_text(encoding="utf-8"))
    return found[1] if found else "nothing"


def main():
    root = pathlib.Path(sys.argv[1])
    numbers = dict(MACRO.findall((root / "include/qkmem/version.h").read_text()))
    if len(numbers) != 3:
        print("include/qkmem/version.h doesn't define the three numbers")
        return 1
    version = ".".join(numbers[part] for part in ("MAJOR", "MINOR", "PATCH"))
    found = {
        "CHANGELOG.md": (first(ENTRY, root / "CHANGELOG.md"), version),
        "packaging/debian/changelog":
            (first(DEBIAN_ENTRY, root / "packaging/debian/changelog"), version),
        "cmake/exports.map": (first(NODE, root / "cmake/exports.map"), numbers["MAJOR"]),
        "abi/": ([record[1] for path in root.glob("abi/*") if (record := RECORD.match(path.name))],
                 [numbers["MAJOR"]]),
    }
    wrong = {name: values for name, values in found.items() if values[0] != values[1]}
    for name, (says, expected) in wrong.items():
        print(f"{name} says {says}, and include/qkmem/version.h says {expected}")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
