#!/usr/bin/env python3
"""Checks that each folder includes only what stands below it in the library's order of layers.

usage: check_layers.py ROOT

Prints the include lines that break the rule; the result is 1 if there are any.
"""

import pathlib
import re
import sys

PUBLIC = "qkmem/qkmem.h"

# What the files of a layer may include, beside files of the layer itself.
BASE = ["support", PUBLIC]
CORE = BASE + ["qkmem/core"]
DIAG = CORE + ["qkmem/diag"]
TABLE = DIAG + ["qkmem/table"]
LIFE = TABLE + ["qkmem/alloc", "qkmem/handle", "qkmem/config", "qkmem/report"]

ALLOWED = {
    "support": [],
    "qkmem": CORE,
    "qkmem/core": BASE,
    "qkmem/diag": CORE,
    "qkmem/table": DIAG,
    "qkmem/alloc": TABLE,
    "qkmem/handle": TABLE,
    "qkmem/config": TABLE,
    "qkmem/report": TABLE,
    "qkmem/life": LIFE,
}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')


def layer_of(path):
    """The layer a file stands in: the public header is one by itself."""
    return path if path == PUBLIC else str(pathlib.PurePosixPath(path).parent)


def may_include(source, included):
    if source == PUBLIC:
        return included == "support/status.h"
    layer = layer_of(source)
    return layer_of(included) in ALLOWED.get(layer, []) + [layer]


def offences(root, source):
    lines = (root / source).read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(lines, start=1):
        match = INCLUDE.match(line)
        if not match:
            continue
        if not (root / match[1]).is_file():
            yield f'{source}:{number}: "{match[1]}" is not written from the root'
        elif not may_include(source, match[1]):
            yield f'{source}:{number}: {layer_of(source)} may not include "{match[1]}"'


def sources(root):
    for top in ("support", "qkmem"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in (".h", ".cpp"):
                yield path.relative_to(root).as_posix()


def main():
    root = pathlib.Path(sys.argv[1])
    found = []
    for source in sources(root):
        if source != PUBLIC and layer_of(source) not in ALLOWED:
            found.append(f"{source}: its folder is no layer; add it to {sys.argv[0]}")
        found += offences(root, source)
    print("\n".join(found) if found else "every include follows the layers")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
