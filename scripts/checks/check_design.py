#!/usr/bin/env python3
"""Checks that the names in docs/DESIGN.md and in src/qkmem.cpp exist.

usage: check_design.py ROOT

The pages of docs/ name tests, docs/oddities.md at least one for each row of its tables.
src/qkmem.cpp has a line for each location that the library shows as its own. The line names a
function and the file that defines it; that function must use it.
"""

import pathlib
import re
import sys

TEST = re.compile(r"^TEST(?:_P|_F)?\(\s*(\w+),\s*(\w+)\s*\)", re.MULTILINE)
NAMED = re.compile(r"`([A-Z]\w*\.[A-Z]\w*)`")
PLACE = re.compile(r"^constinit const SourceLocation (\w+) = here\(\);(?:\s*// (\S+), (\w+)\(\))?$",
                   re.MULTILINE)


def missing_tests(root):
    tests = {
        f"{suite}.{name}"
        for source in root.glob("tests/**/*_test.cpp")
        for suite, name in TEST.findall(source.read_text())
    }
    for page in sorted((root / "docs").glob("*.md")):
        for name in NAMED.findall(page.read_text()):
            if name not in tests:
                yield f"docs/{page.name} names a test that doesn't exist: {name}"


def oddities_without_test(root):
    rows = [row for row in (root / "docs/oddities.md").read_text().splitlines()
            if row.startswith("| ") and row != "| what | held by |"]
    if not rows:
        yield "docs/oddities.md has no rows"
    for row in rows:
        if not NAMED.search(row):
            yield f"docs/oddities.md names no test for: {row}"


def body_of(text, function):
    """Returns the definition of a function that starts a line, up to its closing brace."""
    found = re.search(rf"^[^\s#/][^\n]*\b{function}\([^;{{]*\{{.*?\n\}}", text,
                      re.MULTILINE | re.DOTALL)
    return found[0] if found else ""


def wrong_places(root):
    places = PLACE.findall((root / "src/qkmem.cpp").read_text())
    if not places:
        yield "src/qkmem.cpp has no places"
    for place, file, function in places:
        source = root / "src" / file
        if not file or not source.is_file():
            yield f"src/qkmem.cpp: {place} names no file that exists"
        elif not re.search(rf"\bown::{place}\b", body_of(source.read_text(), function)):
            yield f"src/qkmem.cpp: {place} isn't used by {function}() of src/{file}"


def main():
    root = pathlib.Path(sys.argv[1])
    wrong = [*missing_tests(root), *oddities_without_test(root), *wrong_places(root)]
    print("\n".join(wrong) if wrong else "all that is named exists")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
