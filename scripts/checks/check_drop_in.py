#!/usr/bin/env python3
"""Checks that the README's command that compiles the sources with a program works unchanged.

usage: check_drop_in.py ROOT [APART...]

Copies include/, src/ and a small program to a folder, runs the command there, then the program. The
command compiles the copied sources of a folder as one, which takes a third of the time, but for
those that are named, as in config/module_options.cpp: that each compiles by itself shows when the
static library is built.
"""

import collections
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


def join_sources(src, apart):
    """Leaves one source in each folder, beside those that stay apart."""
    joined = collections.defaultdict(list)
    for source in sorted(src.rglob("*.cpp")):
        if source.relative_to(src).as_posix() not in apart:
            joined[source.parent].append(source.rename(source.with_suffix(".part")))
    for folder, parts in joined.items():
        text = "".join(f'#include "{part.name}"\n' for part in parts)
        (folder / "joined.cpp").write_text(text)


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
        join_sources(tree / "src", sys.argv[2:])
        (tree / "app.cpp").write_text(PROGRAM)
        # Whether it compiles doesn't depend on this, but how long that takes does.
        command = found[0].replace(" -O2 ", " -O0 ")
        built = subprocess.run(command, shell=True, cwd=tree, capture_output=True, text=True)
        if built.returncode != 0 or built.stderr:
            print(f"{command}\n{built.stderr}")
            return 1
        ran = subprocess.run([tree / "app"], capture_output=True, text=True)
    if ran.stdout != "11 bytes\n":
        print(f"the program printed {ran.stdout!r}, not '11 bytes'")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
