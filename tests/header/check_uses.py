#!/usr/bin/env python3
"""Checks which uses of the C++ front compile, and which are refused with a clear message.

usage: check_uses.py ROOT COMPILER...

Each use is compiled as the body of a function that has a handle `pool`, an int `hid` and the types
below. What compiles does so in C++17, C++20 and C++23; what is refused is tried in C++20.
"""

import os
import shutil
import subprocess
import sys
import tempfile

BEFORE = """
#include <memory>
#include <memory_resource>
#include <string>
#include <vector>
#include "qkmem/qkmem.hpp"
struct Point { int x; int y; };
struct Image { explicit Image(int width, int height = 1); };
struct Label { std::string text; float size; unsigned char color; };
"""
FUNCTION = """
[[maybe_unused]] static void use([[maybe_unused]] const qk::Handle& pool,
                                 [[maybe_unused]] int hid) {
"""

NO_RTTI = ["-fno-rtti"]
NO_EXCEPTIONS = ["-fno-exceptions"]
NEEDS_RTTI = "objects on handles need RTTI: compile this without -fno-rtti"
CONTAINERS = """
std::vector<int, qk::allocator<int>> numbers(10, 7, pool);
qk::memory_resource resource(pool);
std::pmr::vector<int> others(10, 7, &resource);
"""
NO_MEMBERS = "no constructor, nor the members, take these arguments"

# What compiles: the flags, and the use.
ACCEPTED = [
    ([], "(void)qk::make<Point>(pool, 1.5, 2);"),
    ([], "(void)qk::make<Point>(pool, 1L, 2ULL);"),
    ([], "(void)qk::make<const Point>(pool, 2.5F);"),
    ([], "(void)qk::make_unique<Point>(pool, true, 'c');"),
    ([], '(void)qk::make<Label>(pool, "text", 1.5, 7);'),
    ([], "Point point{1, 2}; (void)qk::make<Point>(pool, point);"),
    ([], "(void)qk::make<Image>(hid, 640, 480); (void)qk::make<Image>(hid, 640);"),
    ([], "const int number = hid; (void)qk::make_unique<Image>(number, 640);"),
    ([], "(void)qk::make<Image>(qk::On(3), 480);"),
    ([], "(void)qk::make<Image>(pool.number(), 640, 480);"),
    ([], '(void)qk::make<std::string>(pool.number(), "text");'),
    ([], "(void)qk::make<std::string>(QK_MEM_DATA_HANDLE);"),
    ([], "(void)qk::make<Point>(QK_MEM_DATA_HANDLE, 1);"),
    ([], "(void)qk::make_array<int>(3, 10); (void)qk::make_unique<int[]>(pool.number(), 10);"),
    ([], "qk::memory_resource resource(3); qk::allocator<int> allocator(pool.number());"),
    ([], "int* all = nullptr; qk_mem_marralloc(hid, &all, 4, 4); qk_mem_arrfree(hid, &all);"),
    ([], "void* all = nullptr; qk_mem_marralloc(hid, &all, 8, 4); qk_mem_arrfree(hid, &all);"),
    ([], "qk_mem_marralloc(hid, nullptr, 8, 4); qk_mem_arrfree(hid, nullptr);"),
    (NO_RTTI, CONTAINERS),
    (NO_RTTI, "qk::Handle other; (void)other.size();"),
    (NO_EXCEPTIONS, CONTAINERS),
    (NO_EXCEPTIONS, "(void)qk::make_unique<Image>(pool, 640); (void)qk::make_array<int>(pool, 3);"),
    (NO_EXCEPTIONS, "qk::destroy(pool, qk::make<Point>(pool, 1.5));"),
]

# What doesn't: the flags, the use, and a part of the message. "deleted" is what compilers say of a
# function that is refused by its declaration.
REFUSED = [
    ([], '(void)qk::make<Point>(pool, "text");', NO_MEMBERS),
    ([], "(void)qk::make<Point>(pool, 1, 2, 3);", NO_MEMBERS),
    ([], "(void)qk::make<Label>(pool, 1.5);", NO_MEMBERS),
    ([], "(void)qk::make_unique<std::string>(pool, pool);", NO_MEMBERS),
    ([], "(void)qk::make<Image>(640, 480);", "deleted"),
    ([], "(void)qk::make<Image>(640);", "deleted"),
    ([], "(void)qk::make<Point>(640, 480);", "deleted"),
    ([], "(void)qk::make<int>(640);", "deleted"),
    ([], "(void)qk::make_unique<Image>(640, 480);", "deleted"),
    ([], "(void)qk::make_unique<Point>(640, 480.5);", "deleted"),
    ([], "(void)qk::make<Image>(true, 480);", ""),
    ([], "(void)qk::make<Image>('a', 480);", ""),
    ([], "(void)qk::make<Image>(640.0, 480);", ""),
    ([], "(void)qk::make_array<int>(640.0, 480);", ""),
    ([], "qk::memory_resource resource(true);", "deleted"),
    ([], "qk::allocator<int> allocator(3.0);", "deleted"),
    ([], "qk::Deleter<int> deleter(3L);", "deleted"),
    ([], "std::string* all = nullptr; qk_mem_marralloc(hid, &all, sizeof *all, 4);",
     "elements of a growable array must be trivially copyable"),
    ([], "std::string* all = nullptr; qk_mem_arrfree(hid, &all);",
     "elements of a growable array must be trivially copyable"),
    ([], "const int* all = nullptr; qk_mem_marralloc(hid, &all, sizeof *all, 4);",
     "elements of a growable array can't be const or volatile"),
    ([], "struct alignas(32) Wide {}; Wide* all = nullptr; qk_mem_marralloc(hid, &all, 32, 4);",
     "a growable array aligns its elements to 16 bytes"),
    (NO_RTTI, "(void)qk::make<Point>(pool, 1, 2);", NEEDS_RTTI),
    (NO_RTTI, "(void)qk::make_array<int>(pool, 3);", NEEDS_RTTI),
    (NO_RTTI, "(void)qk::make_unique<Image>(pool, 640);", NEEDS_RTTI),
    (NO_RTTI, "qk::destroy(pool, new Point{});", NEEDS_RTTI),
    (NO_RTTI, "qk::destroy<int[]>(pool, new int[3]);", NEEDS_RTTI),
    (NO_RTTI, "qk::unique<Point> none;", NEEDS_RTTI),
]


class Compiler:
    """A compiler in one version of the language."""

    def __init__(self, root, compiler, version, folder):
        self.command = [compiler, f"-std=c++{version}", f"-I{root}/include",
                        "-Werror=conversion"]
        self.suffix = "pch" if "clang" in compiler else "gch"
        self.folder = folder
        self.header = os.path.join(folder, "before.hpp")
        self.headers = {}  # precompiled ones by their flags
        with open(self.header, "w", encoding="utf-8") as file:
            file.write(BEFORE)

    def __str__(self):
        return " ".join(self.command[:2])

    def run(self, *arguments):
        return subprocess.run(self.command + list(arguments), capture_output=True, text=True,
                              check=False)

    def precompile(self, flags):
        """Takes time once, and saves it for each use with these flags."""
        header = os.path.join(self.folder, f"before{len(self.headers)}.hpp")
        shutil.copy(self.header, header)
        run = self.run(*flags, "-x", "c++-header", header, "-o", f"{header}.{self.suffix}")
        if run.returncode == 0:
            self.headers[tuple(flags)] = header

    def errors_of(self, flags, use):
        """The lines of errors; none if the use compiles."""
        header = self.headers.get(tuple(flags), self.header)
        source = os.path.join(self.folder, "use.cpp")
        with open(source, "w", encoding="utf-8") as file:
            file.write(FUNCTION + use + "\n}\n")
        run = self.run(*flags, "-fsyntax-only", "-include", header, source)
        if run.returncode == 0:
            return []
        return [line for line in run.stderr.splitlines() if "error:" in line] or [run.stderr]


def refusals(compiler):
    """What is refused although it should compile. All uses of a set of flags are tried at once."""
    for flags in sorted({tuple(flags) for flags, _ in ACCEPTED}):
        uses = [use for own_flags, use in ACCEPTED if tuple(own_flags) == flags]
        if compiler.errors_of(flags, "".join(f"{{ {use} }}\n" for use in uses)):
            for use in uses:
                for error in compiler.errors_of(flags, use)[:1]:
                    yield f"{compiler} refuses: {use}: {error}"


def acceptances(compiler):
    """What compiles although it should be refused, or is refused with another message."""
    for flags in sorted({tuple(flags) for flags, _, _ in REFUSED}):
        compiler.precompile(flags)
    for flags, use, message in REFUSED:
        errors = compiler.errors_of(flags, use)
        if not errors:
            yield f"{compiler} accepts: {use}"
        elif message not in errors[0]:
            yield f"{compiler} says something else of: {use}: {errors[0]}"


def main():
    root, *compilers = sys.argv[1:]
    complaints = []
    for compiler in compilers:
        for version in ("17", "2b"):
            with tempfile.TemporaryDirectory() as folder:
                complaints += refusals(Compiler(root, compiler, version, folder))
        with tempfile.TemporaryDirectory() as folder:
            cpp20 = Compiler(root, compiler, "20", folder)
            complaints += [*acceptances(cpp20), *refusals(cpp20)]
    for complaint in complaints:
        print(complaint)
    return 1 if complaints else 0


if __name__ == "__main__":
    sys.exit(main())
