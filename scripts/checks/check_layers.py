#!/usr/bin/env python3
"""Checks that each folder includes only lower layers.

usage: check_layers.py ROOT

Prints include lines that break a rule, and differences between the sources and src/sources.cmake.
The exit code is 1 if there are any.
"""

import pathlib
import re
import sys

STATUS = "qkmem/status.h"
VERSION = "qkmem/version.h"
C_HEADER = "qkmem/qkmem.h"
PROFILE_HEADER = "qkmem/profile.h"
CHECK_HEADER = "qkmem/check.h"
NO_GROWTH = "qkmem/no_growth.hpp"
ADAPTER = "qkmem/adapters/adapter.h"
FRONT = "qkmem/qkmem.hpp"
HANDLE = "qkmem/handle.hpp"

# What the files of a folder may include, besides files of the same folder. Includes folders that
# don't exist yet, for planned features.
SUPPORT = [STATUS, VERSION]
FORMATS = SUPPORT + ["src/support"]
CORE = FORMATS + ["src/formats", C_HEADER]
DIAG = CORE + ["src/core"]
# What the profile keeps. Tables tell it of records, and its reports read it.
PROFILE = CORE + ["src/core", "src/symbols", "src/history", "src/recording", PROFILE_HEADER]
# Tables know nothing of the log and the trace file: they answer, and their callers announce.
CHECK = PROFILE + ["src/profile"]
TABLE = CHECK + ["src/check"]
ACCOUNTING = DIAG + ["src/check", "src/diag", "src/history", "src/profile", "src/table"]
BESIDE = ACCOUNTING + ["src/accounting"]
REPORTING = BESIDE + [PROFILE_HEADER, CHECK_HEADER, "src/lost", "src/profile/report"]
ENTRY = REPORTING + ["src/check/report"]
LIFE = ENTRY + ["src/recording", "src/alloc", "src/handle", "src/config", "src/report"]
# The command knows what the library has written, and nothing of its core.
COMMAND = FORMATS + ["src/formats", "src/symbols"]
NAMES = COMMAND + ["tools/qkmem/ledger", "tools/qkmem/input", "tools/qkmem/output"]
VIEWS = NAMES + ["tools/qkmem/names"]
# What sets the library's variables reads them by the library's own rules.
PROGRAM = COMMAND + ["src/config", "tools/qkmem/ledger", "tools/qkmem/output"]

ALLOWED = {
    "include/qkmem/status.h": [],
    "include/qkmem/version.h": [],
    "include/qkmem/qkmem.h": [STATUS, VERSION],
    "include/qkmem/profile.h": [],
    "include/qkmem/check.h": [],
    "include/qkmem/adapters/adapter.h": [],
    "include/qkmem/adapters/libxml2.h": [ADAPTER, C_HEADER],
    "include/qkmem/adapters/lua.h": [ADAPTER, C_HEADER],
    "include/qkmem/adapters/openssl.h": [ADAPTER, C_HEADER],
    "include/qkmem/adapters/sqlite.h": [ADAPTER, C_HEADER],
    "include/qkmem/no_growth.hpp": [PROFILE_HEADER],
    "include/qkmem/gtest.hpp": [NO_GROWTH],
    "include/qkmem/arrays.hpp": [C_HEADER],
    "include/qkmem/handle.hpp": [C_HEADER],
    "include/qkmem/containers.hpp": [HANDLE],
    "include/qkmem/objects.hpp": [HANDLE],
    "include/qkmem/qkmem.hpp": ["qkmem/arrays.hpp", "qkmem/containers.hpp", HANDLE,
                                "qkmem/objects.hpp"],
    "src/support": SUPPORT,
    "src/symbols": FORMATS,
    "src/formats": FORMATS,
    "src/core": CORE,
    "src/diag": DIAG,
    "src/table": TABLE,
    "src/accounting": ACCOUNTING,
    "src/history": SUPPORT + ["src/support"],
    "src/recording": FORMATS + ["src/formats"],
    "src/check": CHECK,
    "src/check/report": REPORTING,
    "src/profile": PROFILE,
    "src/profile/report": DIAG + ["src/diag", "src/history", "src/lost", "src/profile",
                                  "src/symbols", "src/table"],
    "src/lost": TABLE + ["src/history", "src/table"],
    "src/alloc": ENTRY,
    "src/handle": ENTRY,
    "src/config": ENTRY,
    "src/report": ENTRY,
    "src/life": LIFE,
    "src": DIAG,
    "preload": [STATUS, C_HEADER, FRONT],
    "tools/qkmem/ledger": COMMAND,
    "tools/qkmem/output": COMMAND + ["tools/qkmem/ledger"],
    "tools/qkmem/input": COMMAND + ["tools/qkmem/ledger"],
    "tools/qkmem/names": NAMES,
    "tools/qkmem/program": PROGRAM,
    "tools/qkmem/views": VIEWS,
    "tools/qkmem/exports": VIEWS + ["tools/qkmem/views"],
    "tools/qkmem/page": VIEWS + ["tools/qkmem/views"],
    "tools/qkmem": VIEWS + ["tools/qkmem/views", "tools/qkmem/exports", "tools/qkmem/page",
                            "tools/qkmem/program"],
}

INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
LISTED = re.compile(r"^  (\S+\.cpp)$", re.MULTILINE)


def layer_of(path):
    """Returns the layer of a file. Each public header is a layer of its own."""
    if path.startswith("include/"):
        return path
    return str(pathlib.PurePosixPath(path).parent)


def found_as(root, source, name):
    """Returns the file of an include line, whose name is relative to include/ or src/."""
    own = ("tools/qkmem",) if source.startswith("tools/qkmem/") else ()
    for top in own + ("include", "src", "."):
        if (root / top / name).is_file():
            return (pathlib.PurePosixPath(top) / name).as_posix()
    return None


def may_include(source, included):
    layer = layer_of(source)
    public = included.removeprefix("include/") if included.startswith("include/") else None
    return layer_of(included) == layer or (public or layer_of(included)) in ALLOWED[layer]


def offences(root, source):
    lines = (root / source).read_text(encoding="utf-8").splitlines()
    for number, line in enumerate(lines, start=1):
        match = INCLUDE.match(line)
        if not match:
            continue
        included = found_as(root, source, match[1])
        if included is None:
            yield f'{source}:{number}: "{match[1]}" is not written from include/ or src/'
        elif not may_include(source, included):
            yield f'{source}:{number}: {layer_of(source)} may not include "{match[1]}"'


def sources(root):
    for top in ("include", "src", "preload", "tools"):
        for path in sorted((root / top).rglob("*")):
            if path.suffix in (".h", ".hpp", ".cpp"):
                yield path.relative_to(root).as_posix()


def differences_of_lists(root):
    """Differences between src/sources.cmake and the folders."""
    listed = set(LISTED.findall((root / "src/sources.cmake").read_text()))
    there = {path.relative_to(root / "src").as_posix() for path in (root / "src").rglob("*.cpp")}
    for name in sorted(there - listed):
        yield f"src/sources.cmake doesn't list {name}"
    for name in sorted(listed - there):
        yield f"src/sources.cmake lists {name}, which doesn't exist"


def main():
    root = pathlib.Path(sys.argv[1])
    found = list(differences_of_lists(root))
    seen = 0
    for source in sources(root):
        seen += 1
        if layer_of(source) not in ALLOWED:
            found.append(f"{source}: its folder is no layer; add it to {sys.argv[0]}")
        else:
            found += offences(root, source)
    if seen == 0:
        found.append(f"no sources below {root}")
    print("\n".join(found) if found else f"{seen} files follow the layers")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
