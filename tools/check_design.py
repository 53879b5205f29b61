#!/usr/bin/env python3
"""Checks that every test which docs/DESIGN.md names as holding something exists.

usage: check_design.py ROOT
"""

import pathlib
import re
import sys

TEST = re.compile(r"^TEST(?:_P|_F)?\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)
NAMED = re.compile(r"`([A-Z]\w*\.[A-Z]\w*)`")


def main():
    root = pathlib.Path(sys.argv[1])
    tests = {
        f"{suite}.{name}"
        for source in root.glob("tests/**/*_test.cpp")
        for suite, name in TEST.findall(source.read_text())
    }
    named = NAMED.findall((root / "docs/DESIGN.md").read_text())
    missing = [name for name in named if name not in tests]
    for name in missing:
        print(f"docs/DESIGN.md names a test that doesn't exist: {name}")
    return 1 if missing or not named else 0


if __name__ == "__main__":
    sys.exit(main())
