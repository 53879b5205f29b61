#!/usr/bin/env python3
"""Checks that the README's command that compiles the sources with a program works unchanged.

usage: check_drop_in.py ROOT

Copies include/, src/ and a small program to a folder, runs the command there, then the program.
"""

import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

LINE = re.compile(r"^ +(g\+\+ .*-Iinclude -Isrc .*)$", re.MULTILINE)

PROGRAM = """\
#include <cstdio>

#include "qkmem/qkmem.hpp"

int main() {
  const int hid = qk_mem_new_handle("", "DI");
  qk_mem_strdup(hid, "dropped in");
  std::printf("%zu bytes\\n", qk_mem_size(hid));
}
"""


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    found = LINE.findall((root / "README.md").read_text())
    if len(found) != 1:
        print(f"README.md has {len(found)} lines that build with -Iinclude -Isrc")
        return 1
    with tempfile.TemporaryDirectory() as folder:
        tree = pathlib.Path(folder)
        for name in ("include", "src"):
            shutil.copytree(root / name, tree / name)
        (tree / "app.cpp").write_text(PROGRAM)
        built = subprocess.run(found[0], shell=True, cwd=tree, capture_output=True, text=True)
        if built.returncode != 0 or built.stderr:
            print(f"{found[0]}\n{built.stderr}")
            return 1
        ran = subprocess.run([tree / "app"], capture_output=True, text=True)
    if ran.stdout != "11 bytes\n":
        print(f"the program printed {ran.stdout!r}, not '11 bytes'")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
