"""The modules of the program, and which of them contain the library."""

import collections
import os
import re
import struct

import gdb

from .layouts import read
from .library import Copy

Section = collections.namedtuple("Section", "begin end name module")
SECTION = re.compile(r"^\s*(0x[0-9a-f]+) - (0x[0-9a-f]+) is (\.\S*)(?: in (.*))?$", re.MULTILINE)
NOTE = struct.Struct("<III6s2xi")
NOTE_HEAD = [6, 4, 2, b"qkmem\0"]  # see src/life/startup.cpp


def sections():
    program = gdb.current_progspace().filename or "the program"
    for begin, end, name, module in SECTION.findall(gdb.execute("info files", to_string=True)):
        yield Section(int(begin, 16), int(end, 16), name, os.path.basename(module or program))


def table_in(section):
    """The address of the library's table, to which a note in a section leads; or None."""
    try:
        data = read(section.begin, section.end - section.begin)
    except gdb.MemoryError:
        return None
    for place in range(0, len(data) - NOTE.size + 1, 4):
        *head, distance = NOTE.unpack_from(data, place)
        if head == NOTE_HEAD:
            return section.begin + place + NOTE.size - 4 + distance
    return None


def copies():
    """The copies of the library in the program. Raises GdbError if there is none."""
    if gdb.selected_inferior().pid == 0:
        raise gdb.GdbError("The program is not running, and there is no core file.")
    found = []
    for section in sections():
        if section.name == ".note.qkmem":
            table = table_in(section)
            if table is not None:
                found.append(Copy(section.module, table))
    if not found:
        raise gdb.GdbError("There is no qkmem in this program, as far as its files are known.")
    return found
