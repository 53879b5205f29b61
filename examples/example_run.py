"""Runs an example program in a temporary folder and reads what the library wrote there."""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

SOURCES = pathlib.Path(__file__).resolve().parent

# A pointer row of the report: handle, tag, address, kind, count, size, total, number, location.
ROW = re.compile(r"^   [+ ] *(\d+) (..) ([0-9a-f]{16}) (\w) +(\d+) +(\d+) +(\d+) +(\d+) (\S+:\d+)$")


class Example(unittest.TestCase):
    program = None

    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)

    def write(self, name, text):
        (self.folder / name).write_text(text, encoding="ascii")
        return name

    def run_program(self, *arguments, **settings):
        """Runs the program with only the given QK_MEM_ variables, such as DEBUG="..."."""
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("QK_MEM_")}
        environment.update({f"QK_MEM_{name}": value for name, value in settings.items()})
        return subprocess.run([self.program, *arguments], cwd=self.folder, env=environment,
                              capture_output=True, text=True, timeout=100, check=False)

    def expect_nothing_held(self, *arguments):
        """Runs the program, whose memory is all freed at its end. Returns how it ended."""
        result = self.run_program(*arguments, PROFILE="SITES")
        self.assertRegex(result.stderr, r"^qkmem: nothing is held; [\d,]+ allocations of ")
        return result

    def expect_no_warning(self, *arguments):
        """Runs the program, which frees only what its handles know."""
        result = self.run_program(*arguments, DEBUG="EXCEPTIONS LOG=STDERR")
        self.assertEqual(result.stderr,
                         "QK_MEM_DEBUG:  initializing options [EXCEPTIONS LOG=STDERR]\n")


def report_of(log):
    """The part of a log with the report at the end of the process."""
    return log[log.index("Memory at program termination"):]


def rows_of(report):
    """The pointer rows as (tag, kind, count, bytes, location), sorted."""
    matches = filter(None, map(ROW.match, report.splitlines()))
    return sorted((m[2], m[4], int(m[5]), int(m[7]), m[9]) for m in matches)


def place(source, text):
    """The location of the one line with `text` in a source file, as in the report."""
    lines = source.read_text(encoding="utf-8").splitlines()
    numbers = [number for number, line in enumerate(lines, start=1) if text in line]
    assert len(numbers) == 1, f"{text} is in {len(numbers)} lines of {source}"
    return f"{source.name}:{numbers[0]}"


def without_amounts(report):
    """The rows of sites without bytes and shares, which depend on a library's version."""
    amount = re.compile(r"[+-]?[\d,.]+ [KMG]?i?B|<?\d+%")
    rows = (" ".join(amount.sub("*", line).split()) for line in report.splitlines())
    return [row for row in rows if row.startswith("*")]


def adapter_place(library, call):
    """The location that an adapter passes for a call, such as malloc."""
    header = SOURCES.parent / "include" / "qkmem" / "adapters" / f"{library}.h"
    lines = header.read_text(encoding="utf-8").splitlines()
    functions = enumerate(lines)  # goes on where it was left
    next(line for _, line in functions if f"qk_mem_{library}_{call}(" in line)
    number = next(number for number, line in functions if "__LINE__" in line) + 1
    return f"{header.name}:{number}"


def main(case):
    """usage: SCRIPT PROGRAM [TEST...]: runs the named tests of `case`, or all."""
    case.program = sys.argv[1]
    names = [f"{case.__name__}.{name}" for name in sys.argv[2:]]
    unittest.main(module="__main__", argv=[sys.argv[0], *names])
