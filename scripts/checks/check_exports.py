#!/usr/bin/env python3
"""Checks that the shared library exports the whole public interface and nothing else.

usage: check_exports.py LIBRARY NM COMPILER ROOT

The interface is the functions with C linkage that the public headers for C declare,
and the members and tables of the classes of namespace qk. Each has a version, such as QKMEM_1.
"""

import pathlib
import re
import subprocess
import sys

FUNCTION = re.compile(r"\b((?:qk|QK)_\w+)\s*\(")
CLASS_MEMBER = re.compile(r"(?:vtable for |typeinfo for |typeinfo name for )?qk::\w+")


def output_of(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def declared_functions(compiler, root):
    """The names in the preprocessed headers, which have no comments and macros."""
    names = set()
    for header in pathlib.Path(root, "include/qkmem").glob("*.h"):
        text = output_of(compiler, "-x", "c++", "-std=c++20", "-E", "-P", "-I", f"{root}/include",
                         str(header))
        names |= set(FUNCTION.findall(text))
    return names


def exported_symbols(library, nm):
    """Unmangled names without the rest of the signature, each with its version."""
    lines = output_of(nm, "-D", "-C", "--defined-only", library).splitlines()
    symbols = [line.split(maxsplit=2)[1:] for line in lines if line]
    # An absolute symbol stands for the version itself.
    return dict(name.rsplit("@@", 1) if "@@" in name else (name, "")
                for kind, name in symbols if kind != "A")


def main():
    library, nm, compiler, root = sys.argv[1:]
    declared = declared_functions(compiler, root)
    exported = exported_symbols(library, nm)
    missing = sorted(declared - exported.keys())
    surplus = sorted(name for name in exported.keys() - declared if not CLASS_MEMBER.match(name))
    unversioned = sorted(name for name, version in exported.items()
                         if not version.startswith("QKMEM_"))
    for name in missing:
        print(f"not exported: {name}")
    for name in surplus:
        print(f"exported, but not public: {name}")
    for name in unversioned:
        print(f"exported without a version: {name}")
    if not declared:
        print("no function is declared in the public header")
    return 1 if missing or surplus or unversioned or not declared else 0


if __name__ == "__main__":
    sys.exit(main())
