#!/usr/bin/env python3
"""Runs a fault and compares all that it prints with the file beside its source.

usage: fault_test.py [--update] SOURCE PROGRAM

The command is in the first line of SOURCE. What is expected is in SOURCE.expected, without the
ending of SOURCE: first standard output, then standard error. What depends on the run is ignored, by
the rules of scripts/update_reports. With --update the file is written instead. README.md beside
SOURCE must have a row for it.
"""

import difflib
import importlib.machinery
import importlib.util
import os
import pathlib
import shlex
import subprocess
import sys

sys.dont_write_bytecode = True


def update_reports(root):
    loader = importlib.machinery.SourceFileLoader("update_reports",
                                                  str(root / "scripts" / "update_reports"))
    module = importlib.util.module_from_spec(importlib.util.spec_from_loader(loader.name, loader))
    loader.exec_module(module)
    return module


def output_of(source, program):
    """What the program prints with the settings of the command, and then its reports."""
    first_line = source.read_text(encoding="ascii").splitlines()[0]
    *settings, name = shlex.split(first_line.strip("/* "))
    assert name == f"build/faults/{source.stem}", f"{source.name} begins with another command"
    environment = {name: value for name, value in os.environ.items()
                   if not name.startswith("QK_MEM_")}
    environment.update(setting.split("=", 1) for setting in settings)
    result = subprocess.run([program], env=environment, capture_output=True, text=True, timeout=100,
                            check=True)
    return result.stdout + result.stderr


def main():
    arguments = [argument for argument in sys.argv[1:] if argument != "--update"]
    source = pathlib.Path(arguments[0]).resolve()
    expected = source.with_suffix(".expected")
    printed = output_of(source, arguments[1])
    if "--update" in sys.argv:
        expected.write_text(printed, encoding="ascii")
        return 0
    comparable = update_reports(source.parents[2]).comparable
    differences = list(difflib.unified_diff(comparable(expected.read_text(encoding="ascii")),
                                            comparable(printed), expected.name, "printed",
                                            lineterm=""))
    print("\n".join(differences), end="")
    row = f"| [{source.name}]({source.name}) |"
    is_listed = row in (source.parent / "README.md").read_text(encoding="utf-8")
    if not is_listed:
        print(f"README.md has no row that begins with {row}")
    return 1 if differences or not is_listed else 0


if __name__ == "__main__":
    sys.exit(main())
