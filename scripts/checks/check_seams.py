#!/usr/bin/env python3
"""Checks that some facilities are used only through the one header that wraps them.

usage: check_seams.py ROOT

The system's allocator is called only by src/support/system_memory.h. Atomic access to plain
variables is implemented only by src/support/shared_variable.h.

And that the variables which headers of src/ declare are hidden. The compiler's option for that
doesn't reach declarations, and position-independent code takes a detour to what others could see.
"""

import pathlib
import re
import sys

SEAMS = {
    "support/system_memory.h": re.compile(
        r"(?<![\w&])(?:std::|::)?(?:malloc|calloc|realloc|free|strdup|memalign|aligned_alloc)\("
        r"|\bnew \("),
    "support/shared_variable.h": re.compile(r"__atomic_\w+|\b__sync_\w+|\batomic_ref\b"),
}

VISIBILITY = re.compile(r"#pragma GCC visibility ")
VARIABLE = re.compile(r'extern (?!")[^("]*(?:;|\[|QK_GUARDED)')

STRING = re.compile(r'"(?:[^"\\\n]|\\.)*"')


def code_of(text):
    """The text without comments and strings, with the same line numbers."""
    def blank(match):
        return "\n" * match[0].count("\n")
    text = re.sub(r"/\*.*?\*/", blank, text, flags=re.DOTALL)
    return STRING.sub('""', re.sub(r"//[^\n]*", "", text))


def passes(source, text):
    """Lines that bypass a wrapper."""
    for number, line in enumerate(code_of(text).splitlines(), start=1):
        for seam, pattern in SEAMS.items():
            if source != seam and pattern.search(line):
                yield f"src/{source}:{number}: only {seam} may do this: {line.strip()}"


def exposed_variables(source, text):
    """Declarations of variables in a header that are not hidden."""
    hidden = False
    for number, line in enumerate(code_of(text).splitlines(), start=1):
        if VISIBILITY.match(line):
            hidden = "push(hidden)" in line
        elif VARIABLE.match(line) and not hidden:
            yield f"src/{source}:{number}: not declared hidden: {line.strip()}"


def main():
    root = pathlib.Path(sys.argv[1]) / "src"
    found = []
    for seam, pattern in SEAMS.items():
        if not pattern.search(code_of((root / seam).read_text())):
            found.append(f"src/{seam} does none of what only it may do")
    for path in sorted(root.rglob("*")):
        if path.suffix in (".h", ".cpp"):
            source = path.relative_to(root).as_posix()
            found += passes(source, path.read_text())
            if path.suffix == ".h":
                found += exposed_variables(source, path.read_text())
    print("\n".join(found) if found else "nothing goes past the seams")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
