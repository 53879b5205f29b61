#!/usr/bin/env python3
"""Checks the manual pages of scripts/make_man.

usage: check_man.py pages ROOT COMPILER      each public call and macro has a page, always the same
       check_man.py rendering ROOT           groff and mandoc have nothing to say against any page
       check_man.py examples ROOT CC CXX     the examples in the docstrings compile

Ends with 77, or in CI with 1, if a program is missing.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

SKIPPED = 77  # CTest knows it
MACRO = re.compile(r"^#define (qk_\w+)\(", re.MULTILINE)
SECTIONS = ["NAME", "SYNOPSIS", "DESCRIPTION", "SEE ALSO"]

# What the examples use and leave to the reader.
AROUND = """\
#include <assert.h>
#include <stdio.h>
#include <stdlib.h>

#include "qkmem/check.h"
#include "qkmem/profile.h"
#include "qkmem/qkmem.h"

int pool;    /* a handle */
char* text;  /* memory of it */
void parse(const char* file);

"""


def make_man(root, *arguments):
    result = subprocess.run([sys.executable, root / "scripts/make_man", *arguments], check=False,
                            env=os.environ | {"SOURCE_DATE_EPOCH": "86400"})
    if result.returncode != 0:
        sys.exit(result.returncode)  # it has said why


def texts_below(folder):
    return {path.relative_to(folder): path.read_text() for path in folder.rglob("*.[137]")}


def wrong_pages(root, compiler, folder):
    sys.path.insert(0, str(root / "scripts/checks"))
    sys.dont_write_bytecode = True
    from check_exports import declared_functions  # pylint: disable=import-outside-toplevel

    first, second = folder / "first", folder / "second"
    make_man(root, first)
    make_man(root, second)
    pages = texts_below(first)
    if pages != texts_below(second):
        yield "the same headers give different pages"
    names = declared_functions(compiler, root)
    for header in (root / "include/qkmem").glob("*.h"):
        names |= set(MACRO.findall(header.read_text()))
    for name in sorted(names):
        text = pages.get(pathlib.Path(f"man3/{name}.3"))
        if text is None:
            yield f"{name} has no page"
        elif text.startswith(".so "):
            text = pages.get(pathlib.Path(text.split()[1]), "")
        for section in SECTIONS:
            if text is not None and f'.SH "{section}"' not in text:
                yield f"the page of {name} has no {section}"
        heading = rf'^\.SH "NAME"\n[^.]*\b{name}\b'
        if text is not None and not re.search(heading, text, re.MULTILINE):
            yield f"the page of {name} doesn't name it"
    for path in sorted(pages):
        if path.parent.name == "man3" and path.stem not in names:
            yield f"{path} is the page of no call"
    if r"\-\-by" in pages[pathlib.Path("man1/qkmem-symbolize.1")]:
        yield "qkmem-symbolize.1 has options that symbolize doesn't have"
    if r"\-\-by" not in pages[pathlib.Path("man1/qkmem-top.1")]:
        yield "qkmem-top.1 lacks options"
    if '.SH "QK_MEM_PROFILE"' not in pages[pathlib.Path("man7/qkmem.7")]:
        yield "qkmem.7 doesn't describe QK_MEM_PROFILE"


def complaints(command):
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    return (result.stdout + result.stderr).splitlines()


def wrong_rendering(root, folder):
    for program in ("groff", "mandoc"):
        if not shutil.which(program):
            print(f"{program} not found; scripts/setup documents installs it")
            sys.exit(1 if os.environ.get("CI") else SKIPPED)
    make_man(root, folder)
    # What only leads to another page is not looked at twice.
    pages = [folder / path for path, text in sorted(texts_below(folder).items())
             if not text.startswith(".so ")]
    for page in pages:
        yield from complaints(["groff", "-man", "-ww", "-z", page])
    yield from complaints(["mandoc", "-T", "lint", "-W", "warning", *pages])


def wrong_examples(root, c_compiler, cpp_compiler, folder):
    make_man(root, "--examples", folder)
    for name, compiler in (("examples.c", [c_compiler, "-std=c11"]),
                           ("examples.cpp", [cpp_compiler, "-std=c++17"])):
        source = folder / name
        code = source.read_text()
        if "_example_0(void)" not in code:
            yield f"there is no example for {name}"
        source.write_text(AROUND + code)
        yield from complaints([*compiler, "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                               f"-I{root}/include", source])


def main():
    what, root, *compilers = sys.argv[1:]
    check = {"pages": wrong_pages, "rendering": wrong_rendering, "examples": wrong_examples}[what]
    with tempfile.TemporaryDirectory() as folder:
        wrong = list(check(pathlib.Path(root), *compilers, pathlib.Path(folder)))
    print("\n".join(wrong) if wrong else f"the {what} are right")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
