#!/usr/bin/env python3
"""Checks that functions that rely on a lock assert it, and limits how many no compiler checks.

usage: check_lock_rules.py ROOT

- A function with QK_REQUIRES begins with an assertion.
- So does a function whose comment says that it needs the registry's lock or a handle's.
- Functions with an assertion but no annotation for clang, and functions marked as unchecked, are
  exempt. Their number is printed and must not exceed EXEMPT.

The exit code is 1 if a rule is broken. If the number is below EXEMPT, lower EXEMPT.
"""

import pathlib
import re
import sys

# Clang's analysis can't follow the conditional locks of handles and the visitors of reports. And at
# a fork, and at the end by a signal, functions keep the registry's lock on purpose.
EXEMPT = 61

ASSERTION = re.compile(r"\bassert_(?:registry_|growth_|recorder_)?held\(")
NEEDS = re.compile(r"[Nn]eeds? (?:the registry's|the handle's|the) lock\b|[Nn]eeds both locks")
COMMENTED = re.compile(
    r"/\*\*((?:(?!\*/).)*)\*/\s*(?:template <[^;{]*?>\s*)?(?:\[\[[^\]]*\]\]\s*)?"
    r"(?:inline |explicit )?[\w:<>,\*& ]*?\b(\w+)\(", re.DOTALL)
REQUIRING = re.compile(r"\b(\w+)\([^;{}()]*(?:\([^()]*\)[^;{}()]*)*\)\s*(?:const\s+|noexcept\s+)*"
                       r"QK_REQUIRES\(", re.DOTALL)
# A definition: a name, its arguments, what can follow them, and a body up to the closing brace.
UNCHECKED = re.compile(r"\b(\w+)\([^;{}()]*\)\s*QK_UNCHECKED_LOCKING\b")
DEFINITION = re.compile(
    r"^( *)(?![ #/*}]|return\b|if\b|for\b|while\b|switch\b|else\b|namespace\b|class\b|struct\b)"
    r"[^\n;]*?\b(\w+)\((?:[^;{}])*\)[^;{}()]*(?:\([^()]*\))?[^;{}()]*(?::[^;{}]*(?:\{[^{}]*\}[^;{}]*)*)?"
    r"\{\n(.*?)^\1\}", re.MULTILINE | re.DOTALL)


def sources(root):
    for path in sorted((root / "src").rglob("*")):
        if path.suffix in (".h", ".cpp") and path.name != "thread_annotations.h":
            yield path, path.read_text()


class Function:
    """A definition, and whether its first two lines assert a lock."""

    def __init__(self, path, name, body):
        self.path = path
        self.name = name
        lines = [line for line in body.splitlines() if "using namespace" not in line]
        self.asserts = any(ASSERTION.search(line) for line in lines[:2])

    def __str__(self):
        return f"{self.path}: {self.name}()"


def functions(root):
    for path, text in sources(root):
        for _, name, body in DEFINITION.findall(text):
            yield Function(path.relative_to(root), name, body)


def unchecked(root):
    for path, text in sources(root):
        for name in UNCHECKED.findall(text):
            yield f"{path.relative_to(root)}: {name}()"


def relied_on(root):
    """Names of functions that rely on a lock, by their annotations and by their comments."""
    annotated, commented = set(), set()
    for _, text in sources(root):
        annotated.update(REQUIRING.findall(text))
        for comment, name in COMMENTED.findall(text):
            if NEEDS.search(" ".join(comment.replace("*", " ").split())):
                commented.add(name)
    return annotated, commented


def main():
    root = pathlib.Path(sys.argv[1])
    annotated, commented = relied_on(root)
    found = []
    exempt = list(unchecked(root))
    seen = set()
    for function in functions(root):
        seen.add(function.name)
        if function.name in annotated | commented and not function.asserts:
            found.append(f"{function} relies on a lock and doesn't assert it")
        if function.asserts and function.name not in annotated:
            exempt.append(str(function))
    for name in sorted(annotated - seen):
        found.append(f"{name}() relies on a lock, and no definition of it was found")
    print("\n".join(f"exempt: {name}" for name in sorted(exempt)))
    print(f"{len(annotated)} functions are checked by clang and assert their lock, {len(exempt)} are "
          f"exempt, {EXEMPT} may be")
    if len(exempt) > EXEMPT or not annotated:
        found.append("too many functions are exempt, or none is annotated")
    print("\n".join(found))
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
