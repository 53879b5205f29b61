#!/usr/bin/env python3
"""Checks what gdb shows of a program that uses the library.

usage: check_gdb.py CASE FILE...

The cases are the functions below whose name begins with check_, with their files.
"""

import pathlib
import re
import subprocess
import sys
import tempfile

from gdb_runs import ROOT, commands_in, expect_session, gdb_session, masked, require_gdb

PROFILED = {"QK_MEM_PROFILE": "SITES"}
# The breakpoint is in stop(), which finish() calls.
START = ["break stop", "run"]

SESSION = """\
(gdb) qkmem handles
handle  tag  options                                 pointers    bytes  overhead  made at
     1       OVERHEAD AUTOFREE MULTITHREADED                0        0     7,696  qkmem.cpp:12
     2       DATA MULTITHREADED                             0        0         0  qkmem.cpp:13
     3  PI   DATA BLOCKMGMT BLOCKSIZE=512 BLOCKFREE         1      544     1,984  stopped.cpp:64
     4  SE   DATA AUTOFREE MULTITHREADED                    9  204,083     6,704  stopped.cpp:65
     5       DATA BLOCKMGMT BLOCKSIZE=256                   0      288         0  stopped.cpp:66
(gdb) qkmem sites
  bytes  blocks  made  handle  tag  site
200,000       1     1       4  SE   stopped.cpp:44 [growing]
  4,000       1     1       4  SE   stopped.cpp:50
    100       1     1       5       stopped.cpp:47
     40       1     1       4  SE   stopped.cpp:41
     24       1     1       3  PI   stopped.cpp:46
     20       1     1       2       stopped.cpp:48
     15       3     3       4  SE   stopped.cpp:42
     12       1     1       4  SE   stopped.cpp:72
      8       1     1       4  SE   stopped.cpp:74
      8       1     1       4  SE   stopped.cpp:76
      0       0     1       4  SE   stopped.cpp:49
      0       0     1       4  SE   stopped.cpp:51
(gdb) qkmem dump
address           bytes  what    handle  tag  event  site
0x555555586930       20  block        2           8  stopped.cpp:48
0x555555584a70       24  piece        3  PI       6  stopped.cpp:46
0x555555585dd0       40  block        4  SE       1  stopped.cpp:41
0x555555585e00        5  block        4  SE       2  stopped.cpp:42
0x555555585e20        5  block        4  SE       3  stopped.cpp:42
0x555555585e40        5  block        4  SE       4  stopped.cpp:42
0x7ffff7a0e010  200,000  block        4  SE       5  stopped.cpp:44
0x555555586950    4,000  block        4  SE      10  stopped.cpp:50
0x5555555878f0       12  block        4  SE      12  stopped.cpp:72
0x555555587930        8  object       4  SE      13  stopped.cpp:74
0x555555587970        8  object       4  SE      14  stopped.cpp:76
11 blocks of 204,127 bytes
(gdb) qkmem dump TAG=pi
address         bytes  what   handle  tag  event  site
0x555555584a70     24  piece       3  PI       6  stopped.cpp:46
1 block of 24 bytes
(gdb) qkmem dump HANDLE=4 MIN=3000 FILE=stopped.cpp
address           bytes  what   handle  tag  event  site
0x7ffff7a0e010  200,000  block       4  SE       5  stopped.cpp:44
0x555555586950    4,000  block       4  SE      10  stopped.cpp:50
2 blocks of 204,000 bytes
(gdb) qkmem dump FILE=stopped.c
0 blocks of 0 bytes
(gdb) qkmem dump SIZE=3
SIZE=3: no filter. There are HANDLE=number, TAG=tag, FILE=name and MIN=bytes.
(gdb) qkmem dump MIN=all
MIN=all: MIN takes a number.
(gdb) qkmem describe session
0x555555585dd0: a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 1)
(gdb) qkmem describe session + 3
0x555555585dd3: 3 bytes inside a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 1)
(gdb) qkmem describe large + 200000
0x7ffff7a3ed50: just past the end of a block of 200,000 on handle 4 SE, allocated at stopped.cpp:44 (event 5)
(gdb) qkmem describe large + 200001
0x7ffff7a3ed51: 1 byte past the end of a block of 200,000 on handle 4 SE, allocated at stopped.cpp:44 (event 5)
(gdb) qkmem describe large - 4
0x7ffff7a0e00c: 4 bytes before a block of 200,000 on handle 4 SE, allocated at stopped.cpp:44 (event 5)
(gdb) qkmem describe request
0x555555587c50: once a block of 3,000 on handle 4 SE, freed at stopped.cpp:58, allocated at stopped.cpp:51 (event 11)
(gdb) qkmem describe request + 10
0x555555587c5a: once 10 bytes inside a block of 3,000 on handle 4 SE, freed at stopped.cpp:58, allocated at stopped.cpp:51 (event 11)
(gdb) qkmem describe resized
0x555555586950: a block of 4,000 on handle 4 SE, allocated at stopped.cpp:50 (event 10)
0x555555586950: once a block of 5,000 on handle 4 SE, resized at stopped.cpp:50, allocated at stopped.cpp:49 (event 9)
(gdb) qkmem describe piece + 1
0x555555584a71: 1 byte inside a piece of 24 on handle 3 PI, allocated at stopped.cpp:46 (event 6)
(gdb) qkmem describe piece + 100
0x555555584ad4: 100 bytes inside the block of handle 3 PI of 512, in a part that is free
(gdb) qkmem describe in_arena + 1
0x555555585cc1: 1 byte inside the block of handle 5 of 256, in the part that is handed out; the piece has no record
(gdb) qkmem describe unrecorded
0x555555586930: a block of 20 on handle 2, allocated at stopped.cpp:48 (event 8)
(gdb) qkmem describe point
0x555555587970: an object of 8 on handle 4 SE, made at stopped.cpp:76 (event 14)
(gdb) qkmem describe settings[3]
0x74: on no handle, on no stack and in no module, and it cannot be read
(gdb) qkmem describe &settings[3]
0x55555555e103: 3 bytes inside settings, static data of stopped (.data)
(gdb) qkmem describe settings
0x55555555e100: settings, static data of stopped (.data)
(gdb) qkmem describe main
0x555555556519: main, code of stopped (.text)
(gdb) qkmem describe on_other_stack
0x7ffff75ffe7f: on the stack of thread 2, in frame *, wait_beside()
(gdb) qkmem describe
Usage: qkmem describe ADDRESS
(gdb) qkmem describe stop()
Cannot call functions in the program: may-call-functions is off.
(gdb) qkmem describe nothing
No symbol "nothing" in current context.
(gdb) up
(gdb) qkmem describe &local
0x7fffffffe2fc: on the stack of thread 1, in frame 1, finish()
(gdb) frame function main
(gdb) qkmem describe numbers
0x7fffffffe320: on the stack of thread 1, in frame 2, main()
(gdb) print sessions
handle 4 SE, 9 pointers to 204,083 bytes
(gdb) print moved
no handle
(gdb) print deleted
handle 6, which is gone
(gdb) print pieces_by_number
handle 3 PI, 1 pointer to 544 bytes
(gdb) print numbers
std::vector of length 3, capacity 3 = {1, 2, 3}
(gdb) print allocator
on handle 4 SE, 9 pointers to 204,083 bytes
(gdb) print resource
on handle 4 SE, 9 pointers to 204,083 bytes
(gdb) print owned
std::unique_ptr<Point> = {get() = 0x555555587930}
(gdb) print deleter
on handle 4 SE, 9 pointers to 204,083 bytes
(gdb) print tracker
tracker of (Point) 0x555555587970
"""

# Where the library has other layouts than the commands know, they take the symbols.
SESSION_OF_ANOTHER_VERSION = """\
(gdb) python from qkmem_gdb import layouts; layouts.LAYOUT = 2
(gdb) qkmem describe session + 3
0x555555585dd3: 3 bytes inside a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 1)
"""

# Texts of labels take symbols in any case.
SESSION_WITHOUT_SYMBOLS = SESSION + """\
(gdb) python from qkmem_gdb import layouts; layouts.LAYOUT = 2
(gdb) qkmem handles
This program has another version of qkmem than these commands: they need the debug symbols of the \
library, which the package libqkmem1-dbgsym has.
"""
SESSION_WITHOUT_SYMBOLS = SESSION_WITHOUT_SYMBOLS.replace(
    "stopped.cpp:44 [growing]\n", "stopped.cpp:44 [label 1]\n").replace(
    "      0       0     1       4  SE   stopped.cpp:51\n",
    "      0       0     1       4  SE   stopped.cpp:51\n"
    "The texts of labels need the debug symbols of the library, which the package "
    "libqkmem1-dbgsym has.\n")


def expect_process_and_core(program, environment, expected):
    commands = commands_in(expected)
    with tempfile.TemporaryDirectory() as folder:
        core = pathlib.Path(folder) / "core"
        process = gdb_session(program, before=START, environment=environment,
                              commands=[*commands, f"generate-core-file {core}"])
        expect_session("a process", commands, process, expected)
        in_core = gdb_session(program, core, environment=environment, commands=commands)
        expect_session("a core file", commands, in_core, expected)


def check_symbols(program):
    """The library has debug symbols."""
    expect_process_and_core(program, PROFILED, SESSION + SESSION_OF_ANOTHER_VERSION)


def check_stripped(program, library, strip):
    """The library has no symbols but those that it exports."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / "libqkmem.so.1"
        subprocess.run([strip, "--strip-all", "-o", stripped, library], check=True)
        expect_process_and_core(program, PROFILED | {"LD_LIBRARY_PATH": folder},
                                SESSION_WITHOUT_SYMBOLS)


def check_static(program, strip):
    """The program contains the library, and has no symbols at all. It stops when it aborts."""
    with tempfile.TemporaryDirectory() as folder:
        stripped = pathlib.Path(folder) / "stopped_static"
        subprocess.run([strip, "--strip-all", "-o", stripped, program], check=True)
        expected = """\
(gdb) qkmem handles
handle tag options pointers bytes overhead made at
 1 OVERHEAD AUTOFREE MULTITHREADED 0 0 7,696 qkmem.cpp:12
 2 DATA MULTITHREADED 0 0 0 qkmem.cpp:13
 3 PI DATA BLOCKMGMT BLOCKSIZE=512 BLOCKFREE 1 544 1,984 stopped.cpp:64
 4 SE DATA AUTOFREE MULTITHREADED 9 204,083 6,704 stopped.cpp:65
 5 DATA BLOCKMGMT BLOCKSIZE=256 0 288 0 stopped.cpp:66
(gdb) qkmem dump HANDLE=3
address bytes what handle tag event site
0x5cdfb000 24 piece 3 PI 6 stopped.cpp:46
1 block of 24 bytes
"""
        commands = commands_in(expected)
        outputs = gdb_session(stripped, before=["run"], environment=PROFILED, commands=commands)
        # The program is at low addresses, which are short.
        outputs = [re.sub(" +", " ", re.sub("0x[0-9a-f]+", "0x00000000", output))
                   for output in outputs]
        expect_session("a static program", commands, outputs, expected)


def check_unprofiled(program):
    """The profile is off: places are those of records, and events those of the log."""
    expected = """\
(gdb) qkmem sites
The profile has not been on: QK_MEM_PROFILE=SITES switches it on.
(gdb) qkmem describe session + 3
0x555555585dd3: 3 bytes inside a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event *)
"""
    commands = commands_in(expected)
    outputs = gdb_session(program, before=START, commands=commands)
    # The log counts the library's own memory too, which depends on addresses.
    outputs = [re.sub(r"event \d+", "event *", output) for output in outputs]
    expect_session("without the profile", commands, outputs, expected)


def check_copies(program, plugin):
    """A second copy of the library is there. It has allocated once already, and takes the calls."""
    expected = """\
(gdb) qkmem dump HANDLE=3
The copy of qkmem in libthreads_first_copy.so:
address         bytes  what   handle  tag  event  site
0x555555584a70     24  piece       3  PI       7  stopped.cpp:46
1 block of 24 bytes
The copy of qkmem in libqkmem.so.1:
0 blocks of 0 bytes
(gdb) qkmem describe session + 3
0x555555585dd3: 3 bytes inside a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 2)
(gdb) print pieces_by_number
handle 3 PI, 1 pointer to 544 bytes
"""
    commands = commands_in(expected)
    outputs = gdb_session(program, environment=PROFILED, commands=commands, before=[
        f"set exec-wrapper env LD_PRELOAD={plugin}", *START, "frame function main"])
    expect_session("two copies", commands, outputs, expected)


def check_nothing(program):
    """There is nothing to show."""
    expected = """\
(gdb) qkmem handles
The program is not running, and there is no core file.
(gdb) qkmem describe 1
The program is not running, and there is no core file.
"""
    commands = commands_in(expected)
    expect_session("before the start", commands, gdb_session(program, commands=commands), expected)
    expected = """\
(gdb) qkmem handles
There are no handles: no call was made yet, or the program has ended.
(gdb) qkmem sites
The profile has not been on: QK_MEM_PROFILE=SITES switches it on.
(gdb) qkmem dump
0 blocks of 0 bytes
(gdb) qkmem describe 1
0x1: on no handle, on no stack and in no module, and it cannot be read
"""
    commands = commands_in(expected)
    outputs = gdb_session(program, before=["break main", "run"], commands=commands)
    expect_session("before the first call", commands, outputs, expected)
    outputs = gdb_session("/bin/true", before=["starti"], commands=["qkmem handles"])
    expect_session("without the library", ["qkmem handles"], outputs, """\
(gdb) qkmem handles
There is no qkmem in this program, as far as its files are known.
""")


def check_layouts(library):
    """The debug symbols have the layouts that the script knows."""
    program = ("python\nfrom qkmem_gdb import layouts\n"
               "for name, known in layouts.LAYOUTS.items():\n"
               "    found = layouts.fields_in_debug_info(name)\n"
               "    print(name, 'is right' if found == known else f'{found} and not {known}')\n"
               "end\n")
    with tempfile.NamedTemporaryFile("w", suffix=".gdb") as file:
        file.write(program)
        file.flush()
        output, = gdb_session(library, commands=[f"source {file.name}"])
    wrong = [line for line in output.splitlines() if not line.endswith(" is right")]
    if wrong or not output:
        sys.exit(f"layouts differ:\n{output}")


DAMAGES = [
    ("set var Qk_mem_handles[3]->ptrs[0].capacity = 2147483647",
     r"handle 4 SE: its array 0 of records: it has 2,147,483,647 slots, but 16 by its own record"),
    ("set var Qk_mem_handles[3]->ptrs[1].ptrs = 16",
     r"handle 4 SE: its array 1 of records: Cannot access memory at address 0x10"),
    ("set var Qk_mem_handles[2]->blocks->next = Qk_mem_handles[2]->blocks",
     r"handle 3 PI: its list of blocks does not end where it should"),
    ("set var 'qk::mem::profile::freed_blocks'.all_->next_of_all = "
     "'qk::mem::profile::freed_blocks'.all_",
     r"the history of freed blocks does not end where it should"),
    ("set var 'qk::mem::profile::sites'.sites_.count_ = 4294967295",
     r"sites: there cannot be 4,294,967,295"),
    ("set var 'qk::mem::profile::(anonymous namespace)::labels'.chunks_[0]->outer = 1", None),
    ("set var Qk_mem_handles[3]->profile_pool = 24",
     r"handle 4 SE: what the profile knows of it: Cannot access memory at address 0x18"),
    ("set var Qk_mem_handles[2]->tag = 8",
     r"the tag of handle 3: Cannot access memory at address 0x8"),
    ("set var Qk_mem_handles[1]->id = 77", r"handle 2: what is at 0x\w+ is no record of it"),
    ("set var 'qk::mem::real_slots' = 2147483647",
     r"the array of handles: it cannot have 2,147,483,647 slots"),
    ("set var 'qk::mem::real_slots' = 512", None),
    ("set var Qk_mem_handles = 40", r"the array of handles: Cannot access memory at address 0x28"),
]
LOOKS = ["qkmem handles", "qkmem sites", "qkmem dump", "qkmem describe request + 1",
         "qkmem describe 16"]


def check_damage(program):
    """Memory is damaged, step by step. The commands tell it, and show the rest."""
    commands = [command for damage, _ in DAMAGES for command in (damage, *LOOKS)]
    outputs = gdb_session(program, before=START, environment=PROFILED, commands=commands)
    steps = [outputs[first:first + len(LOOKS) + 1]
             for first in range(0, len(outputs), len(LOOKS) + 1)]
    for (damage, told), (done, *shown) in zip(DAMAGES, steps):
        text = "".join(shown)
        if done or (told and not re.search(f"^Damaged: {told}$", text, re.MULTILINE)):
            sys.exit(f"{damage}: not told\n{done}{text}")
    if "stopped.cpp:64" not in steps[0][1] or "stopped.cpp:44" not in steps[0][3]:
        sys.exit(f"what is not damaged is not shown:\n{''.join(steps[0])}")


# Random bytes over records of all types, which are put back afterwards.
NOISE = """\
python
import random
import gdb
random.seed(20)
process = gdb.selected_inferior()
places = [("Qk_mem_handles[3]", 1216), ("Qk_mem_handles[2]", 160), ("Qk_mem_handles", 64),
          ("Qk_mem_handles[3]->ptrs[0].ptrs", 768), ("Qk_mem_handles[3]->profile_pool", 768),
          ("Qk_mem_handles[2]->blocks", 32), ("&'qk::mem::profile::sites'", 192),
          ("'qk::mem::profile::sites'.sites_.chunks_[0]", 1500),
          ("&'qk::mem::profile::pools'", 168), ("&'qk::mem::profile::freed_blocks'", 40),
          ("'qk::mem::profile::freed_blocks'.all_", 200)]
for turn in range(11):
    expression, size = places[turn % len(places)]
    address = int(gdb.parse_and_eval(expression))
    kept = process.read_memory(address, size).tobytes()
    noise = bytearray(kept)
    for _ in range(random.choice((1, 8, size))):
        noise[random.randrange(size)] = random.choice((0, 1, 127, 128, 255, random.randrange(256)))
    process.write_memory(address, bytes(noise))
    for command in ("handles", "sites", "dump", "describe request + 1", "describe &local"):
        try:
            gdb.execute("qkmem " + command, to_string=True)
        except gdb.GdbError:
            pass
        except gdb.error as error:
            if "Python" in str(error):
                print(f"{expression}: {command}: {error}")
    process.write_memory(address, kept)
print(gdb.execute("qkmem describe session", to_string=True), end="")
end
"""


def check_noise(program):
    with tempfile.NamedTemporaryFile("w", suffix=".gdb") as file:
        file.write(NOISE)
        file.flush()
        commands = [f"source {file.name}"]
        outputs = gdb_session(program, before=[*START, "frame function finish"],
                              environment=PROFILED, commands=commands)
    expect_session("noise", ["noise"], outputs, """\
(gdb) noise
0x555555585dd0: a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 1)
""")


def check_installed(program, cmake, build):
    """gdb finds the installed script by the library, and the script the rest."""
    with tempfile.TemporaryDirectory() as name:
        prefix = pathlib.Path(name).resolve()
        subprocess.run([cmake, "--install", build, "--prefix", prefix, "--component", "runtime"],
                       check=True, stdout=subprocess.DEVNULL)
        library, = prefix.rglob("libqkmem.so.1")
        share = prefix / "share/gdb/auto-load"
        arguments = ["-iex", f"add-auto-load-scripts-directory {share}", "-iex",
                     f"add-auto-load-safe-path {share}", program]
        commands = ["qkmem describe session"]
        outputs = gdb_session(*arguments, commands=commands, before=START, source=None,
                              environment=PROFILED | {"LD_LIBRARY_PATH": str(library.parent)})
        expect_session("an installation", commands, outputs, """\
(gdb) qkmem describe session
0x555555585dd0: a block of 40 on handle 4 SE, allocated at stopped.cpp:41 (event 1)
""")
        left = sorted(str(path.relative_to(prefix)) for path in prefix.rglob("__pycache__"))
        if left:
            sys.exit(f"gdb leaves files behind: {left}")
        sourced = prefix / "share/qkmem/gdb/qkmem-gdb.py"
        again = gdb_session(program, commands=commands, before=START, source=sourced,
                            environment=PROFILED)
        if masked(again[0]) != masked(outputs[0]):
            sys.exit(f"source {sourced}:\n{again[0]}")


def check_page(program):
    """The page shows what is printed."""
    page = (ROOT / "docs/gdb.md").read_text(encoding="utf-8")
    blocks = re.findall(r"^```\n(\(gdb\) qkmem .*?)^```$", page, re.MULTILINE | re.DOTALL)
    session = "".join(blocks)
    commands = commands_in(session)
    if not commands:
        sys.exit("docs/gdb.md has no session")
    outputs = gdb_session(program, before=[*START, "up"], environment=PROFILED, commands=commands)
    expect_session("docs/gdb.md", commands, outputs, session)


def main():
    if len(sys.argv) < 2 or f"check_{sys.argv[1]}" not in globals():
        sys.exit(__doc__)
    require_gdb()
    globals()[f"check_{sys.argv[1]}"](*sys.argv[2:])


if __name__ == "__main__":
    main()
