#!/usr/bin/env python3
"""Checks that Go's pprof shows the sums, names and labels of profiles, and their difference.

usage: check_pprof.py OUTPUTS
"""

import os
import pathlib
import re
import shutil
import sys
import tempfile

from viewers import expect_equal, missing, run

PROTO = pathlib.Path("/usr/share/gocode/src/github.com/google/pprof/proto/profile.proto")
SUMS = {"alloc_objects": 16, "alloc_space": 4140, "inuse_objects": 3, "inuse_space": 3128}
# Rows of -top: flat, cumulated, function.
TOP = {
    "alloc_space": [("3000B", "3640B", "main"), ("640B", "640B", "grow (inline)"),
                    ("500B", "500B", "parse.c:7"), ("0", "640B", "app::load")],
    "inuse_space": [("3000B", "3128B", "main"), ("128B", "128B", "grow (inline)"),
                    ("0", "128B", "app::load")],
}


def pprof(*arguments):
    return run("go", "tool", "pprof", *arguments).decode("utf-8")


def total_of(kind, *profiles):
    report = pprof("-top", "-unit=B", f"-sample_index={kind}", *profiles)
    return int(re.search(r" of (\d+)B? total$", report, re.MULTILINE)[1])


def rows_of(kind, profile):
    report = pprof("-top", "-unit=B", f"-sample_index={kind}", profile)
    rows = re.findall(r"^ *(\S+) +\S+% +\S+% +(\S+) +\S+%  (.*)$", report, re.MULTILINE)
    return [row for row in rows if row[1] != "0"]


def check_raw(profile):
    raw = pprof("-raw", profile)
    rows = re.findall(r"^ +(\d+) +(\d+) +(\d+) +(\d+): ", raw, re.MULTILINE)
    expect_equal("sums of -raw", [sum(map(int, column)) for column in zip(*rows)],
                 list(SUMS.values()))
    types = re.search(r"^alloc_objects.*$", raw, re.MULTILINE)[0]
    expect_equal("types of -raw", types.split(), ["alloc_objects/count", "alloc_space/bytes",
                                                  "inuse_objects/count", "inuse_space/bytes[dflt]"])
    expect_equal("mapping of -raw", re.search(r"^1: .*$", raw, re.MULTILINE)[0],
                 "1: 0x400000/0x500000/0x0 /bin/app c0ffee [FN][FL][LN][IN]")


def check_labels(profile):
    tags = pprof("-tags", "-unit=B", profile)
    expect_equal("labels", re.findall(r"^ *(\w+): Total (\S+)B$", tags, re.MULTILINE),
                 [("handle", "128.0"), ("tag", "128.0")])


def check_sources(profile):
    peek = pprof("-peek=main", "-lines", profile)
    expect_equal("line of main", re.findall(r"main (\S+:\d+)$", peek, re.MULTILINE)[0],
                 "gr\ufffdn.cpp:300")


def check_proto(profile):
    """That the format's own description accepts it, texts that are UTF-8 included."""
    if not shutil.which("protoc") or not PROTO.exists():
        missing("protoc, or the format's description")
    decoded = run("protoc", "-I", str(PROTO.parent), "--decode=perftools.profiles.Profile",
                  PROTO.name, given=pathlib.Path(profile).read_bytes()).decode("utf-8")
    expect_equal("fields without a name", re.findall(r"^ *\d+: .*$", decoded, re.MULTILINE), [])
    expect_equal("samples", len(re.findall(r"^sample \{$", decoded, re.MULTILINE)), 3)


def main():
    if not shutil.which("go"):
        missing("go")
    with tempfile.TemporaryDirectory() as folder:
        os.environ["PPROF_TMPDIR"] = folder
        once, thrice = (os.path.join(folder, name) for name in ("once.pb", "thrice.pb"))
        pathlib.Path(once).write_bytes(run(sys.argv[1], "pprof", "1"))
        pathlib.Path(thrice).write_bytes(run(sys.argv[1], "pprof", "3"))
        check_raw(once)
        for kind, expected in SUMS.items():
            expect_equal(f"{kind} of -top", total_of(kind, once), expected)
            expect_equal(f"{kind} of -base", total_of(kind, "-base", once, thrice), 2 * expected)
        for kind, rows in TOP.items():
            expect_equal(f"rows of {kind}", rows_of(kind, once), rows)
        check_labels(once)
        check_sources(once)
        check_proto(once)
    print("pprof shows what was written")


if __name__ == "__main__":
    main()
