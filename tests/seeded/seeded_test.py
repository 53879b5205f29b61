"""Runs a server with a seeded fault, and looks for the guilty line in the profile's report.

usage: seeded_test.py PROGRAM FAULT   ("none": looks at the server without a fault)

The program is tests/seeded/. It gets the setting that docs/finding.md recommends. The line of a
fault has the comment "guilty: FAULT". It must be in the first row of its part of the report. Of the
rows that hold memory at the end, it can be the second one: what is meant to be kept can be more
than what leaks. With call stacks it must be the first one, and the nearest caller there the line
with the comment "caller: FAULT".
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCES = pathlib.Path(__file__).resolve().parent

HELD, PEAK, CHURN = "still hold", "held at the peak", "churn"

# What the user of the server sees, and the part of the report that shows it.
FAULTS = {
    "error_path": ("It leaks", HELD),
    "one_of_many": ("It leaks", HELD),
    "big_block": ("It leaks", HELD),
    "cache": ("It grows", HELD),
    "phases": ("It grows", HELD),
    "peak": ("It peaks", PEAK),
    "churn": ("It is slow", CHURN),
    "constructor": ("It leaks", HELD),
    "thread": ("It leaks", HELD),
    "callback": ("A library leaks", HELD),
    "library": ("A library leaks", HELD),
}

# For stacks the user names the frames that are the library's.
SETTINGS = {"library": "STACKS SKIP=parse_list"}

# Innocent rows that may stand above the guilty one.
ROWS_ABOVE = {HELD: 1, PEAK: 0, CHURN: 0}

ROW = re.compile(r"^ .*  (?:[\w:~]+ )?(\S+\.cpp:\d+)(?: \[(.*)\])?(?: < [\w:~]+ (\S+:\d+).*)?$")


def run(program, fault, **settings):
    """The standard error of the program, with only the given QK_MEM_ variables."""
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("QK_MEM_")}
    environment.update({f"QK_MEM_{name}": value for name, value in settings.items()})
    with tempfile.TemporaryDirectory() as folder:
        result = subprocess.run([program, fault], cwd=folder, env=environment, text=True,
                                stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, timeout=50,
                                check=True)
    return result.stderr


def marked(kind, fault):
    """The place of the one line with a comment about a fault, and the line."""
    comment = re.compile(rf"// {kind}: (?:\w+, )*{fault}(?:, \w+)*$")
    found = [(f"{source.name}:{number}", line)
             for source in sorted(SOURCES.glob("*.cpp"))
             for number, line in enumerate(source.read_text(encoding="ascii").splitlines(), start=1)
             if comment.search(line)]
    assert len(found) <= 1, f"{len(found)} lines have the comment {kind}: {fault}"
    return found[0] if found else (None, "")


def guilty_row(fault):
    """The place, label and caller that lead to a fault. The last two are None if there are none."""
    place, _ = marked("guilty", fault)
    assert place, f"no line has the comment guilty: {fault}"
    _, line = marked("label", fault)
    label = re.search(r'"(.*)"', line)
    caller, _ = marked("caller", fault)
    return place, label[1] if label else None, caller


def rows_of(report, part):
    """The places, labels and callers of a part, from the first row to the last."""
    lines = iter(report.splitlines())
    for line in lines:
        if line.startswith("qkmem: ") and part in line:
            break
    rows = []
    for line in lines:
        if rows and line.startswith("qkmem: "):
            break
        row = ROW.match(line)
        if row:
            rows.append(row.groups())
    return rows


def setting_for(symptom):
    """The value of QK_MEM_PROFILE that the documents recommend."""
    page = (SOURCES.parent.parent / "docs" / "finding.md").read_text(encoding="utf-8")
    return re.search(rf"^\| \[{symptom}\].*? \| `QK_MEM_PROFILE=(\w+)`", page, re.MULTILINE)[1]


def check_fault(program, fault):
    symptom, part = FAULTS[fault]
    setting = SETTINGS.get(fault) or setting_for(symptom)
    report = run(program, fault, PROFILE=setting)
    guilty = guilty_row(fault)
    rows = rows_of(report, part)
    rows_above = 0 if fault in SETTINGS else ROWS_ABOVE[part]
    if guilty not in rows[:rows_above + 1]:
        sys.exit(f"{guilty} is not at the top of the part '{part}':\n{report}")
    # A row with another label is of an innocent step.
    if guilty in rows_of(run(program, "none", PROFILE=setting), part):
        sys.exit(f"{guilty} is reported without the fault too")
    print(f"{fault}: row {rows.index(guilty) + 1} of {len(rows)}")


def check_innocents(program):
    """The server must be large enough to hide a fault, or it would be no art to find one."""
    log = run(program, "none", DEBUG="LOG=STDERR DEBUG")
    places = set(re.findall(r" (server\.cpp:\d+)$",
                            "\n".join(line for line in log.splitlines() if "alloc" in line
                                      or "strdup" in line), re.MULTILINE))
    held = rows_of(run(program, "none", PROFILE="TOP=0"), HELD)
    print(f"{len(places)} innocent places, of which {len(held)} hold memory at the end")
    if len(places) < 40 or len(held) < 5:
        sys.exit("that is too few")


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    program, fault = pathlib.Path(sys.argv[1]).resolve(), sys.argv[2]
    if fault == "none":
        check_innocents(program)
    else:
        check_fault(program, fault)


if __name__ == "__main__":
    main()
