#!/usr/bin/env python3
"""Checks that docs/warnings.md explains each warning and error line of the library, and no other.

usage: check_warnings.py ROOT

A row of a table begins with a line of the log: what the library fills in is in capitals there, such
as FILE:LINE. Prints what is missing. The exit code is 1 if anything is.
"""

import pathlib
import re
import sys

LITERALS = r'(?:"(?:[^"\\]|\\.)*"\s*)+'
LOGGED = re.compile(r"\b(?:qk_mem_write_log|std::printf)\(\s*(" + LITERALS + r")")
FAILED = re.compile(r"\breport_failure\(\s*\w+(?:\.\w+\([^()]*\))?,\s*(" + LITERALS + r")")
PIECE = re.compile(r'"((?:[^"\\]|\\.)*)"')
FILLED_IN = re.compile(r"%[-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:hh|h|ll|l|z)?[a-zA-Z]")
LEVEL = re.compile(r"(?:WARNING|ERROR):\s+")
ROW = re.compile(r"^\| `((?:[^`])+)` \|", re.MULTILINE)
NAME = re.compile(r"\b[A-Z]+\d?\b")


def messages(root):
    """The formats of all lines, from their level on."""
    for path in sorted((root / "src").rglob("*.cpp")):
        source = path.read_text()
        for pattern, prefix in ((LOGGED, ""), (FAILED, "ERROR: ")):
            for match in pattern.finditer(source):
                text = prefix + "".join(PIECE.findall(match.group(1))).replace("\\n", "")
                level = LEVEL.search(text)
                if level and FILLED_IN.sub("", text[level.end():]).strip(" :"):
                    yield text[level.start():]


def shape(text, filled_in):
    """A line without what is filled in, nor the spaces that align it."""
    level = LEVEL.match(text)
    return level.group().split(":")[0], " ".join(filled_in.sub("*", text[level.end():]).split())


def main():
    root = pathlib.Path(sys.argv[1])
    page = (root / "docs/warnings.md").read_text()
    known = {shape(row, NAME) for row in ROW.findall(page) if LEVEL.match(row)}
    used = set()
    wrong = False
    for message in messages(root):
        plain = FILLED_IN.sub("X", message)
        used.add(shape(plain, NAME))
        if shape(plain, NAME) not in known:
            print(f"docs/warnings.md doesn't explain: {message}")
            wrong = True
    for level, text in sorted(known - used):
        print(f"docs/warnings.md explains a line that there isn't: {level}: {text}")
        wrong = True
    print(f"{len(used)} warnings and errors are explained")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
