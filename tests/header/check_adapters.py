#!/usr/bin/env python3
"""Checks that each adapter compiles alone, without warnings, in C and in C++.

usage: check_adapters.py ROOT [INCLUDE_DIRECTORY...]

The directories are those of the adapted libraries' headers that compilers don't know. Leaves out
the adapter of a library that isn't installed, and a compiler that isn't.
"""

import pathlib
import re
import shutil
import subprocess
import sys

FLAGS = ["-fsyntax-only", "-Werror", "-Wall", "-Wextra", "-Wpedantic", "-Wshadow", "-Wconversion",
         "-Wsign-conversion", "-Wcast-qual"]
LANGUAGES = [
    (["gcc", "clang"], ["-x", "c", "-std=c11", "-Wstrict-prototypes"]),
    (["g++", "clang++"], ["-x", "c++", "-std=c++17", "-Wold-style-cast"]),
    (["g++", "clang++"], ["-x", "c++", "-std=c++20", "-Wold-style-cast"]),
]

LIBRARYS_HEADER = re.compile(r"^#include <((?:sqlite3|openssl/\w+|lua|libxml/\w+)\.h)>$",
                             re.MULTILINE)


def compiled(command, text):
    """The messages of a compiler; None if it accepts the text."""
    run = subprocess.run([*command, "-"], input=text, capture_output=True, text=True, check=False)
    return None if run.returncode == 0 else run.stderr


def complaints(header, root, directories):
    name = header.relative_to(root / "include").as_posix()
    text = header.read_text(encoding="utf-8")
    needed = "".join(f"#include <{found}>\n" for found in LIBRARYS_HEADER.findall(text))
    includes = [f"-I{root}/include", *(f"-isystem{directory}" for directory in directories)]
    for compilers, language in LANGUAGES:
        for compiler in filter(shutil.which, compilers):
            if compiled([compiler, *language, "-fsyntax-only", *includes], needed):
                print(f"left out: {name}, whose library isn't installed")
                return
            message = compiled([compiler, *language, *FLAGS, *includes], f'#include "{name}"\n')
            if message:
                yield f"{compiler} {language[2]}: {message}"


def main():
    root, *directories = sys.argv[1:]
    root = pathlib.Path(root).resolve()
    headers = sorted((root / "include/qkmem/adapters").glob("*.h"))
    found = [complaint for header in headers for complaint in complaints(header, root, directories)]
    print("\n".join(found) if found else f"{len(headers)} headers were looked at")
    return 1 if found or not headers else 0


if __name__ == "__main__":
    sys.exit(main())
