"""How the program's memory is read: bytes, texts, and what is laid out as LAYOUTS says.

Tests compare LAYOUTS with the library's debug symbols.
"""

import collections
import re
import struct

import gdb

# The number in the library's table for which LAYOUTS are right.
LAYOUT = 1

# By the name of the type: its bytes, and the offset and format of each field that is needed.
TABLE = "qk::mem::(anonymous namespace)::DebuggerTable"
STORE = "qk::NumberedStore<qk::mem::profile::Pool>"  # one layout, whatever is in it
LAYOUTS = {
    TABLE: (64, {
        "layout": (0, "Q"), "handles": (8, "Q"), "slots": (16, "Q"), "set_aside": (24, "Q"),
        "sites": (32, "Q"), "pools": (40, "Q"), "tag_levels": (48, "Q"),
        "freed_blocks": (56, "Q")}),
    "qk_mem_handle": (1216, {
        "id": (0, "i"), "generation": (4, "I"), "amount": (24, "Q"), "qty": (32, "I"),
        "overhead_amount": (56, "Q"), "tag": (88, "Q"), "type": (96, "B"), "autofree": (97, "B"),
        "blockmgmt": (101, "B"), "blocksize": (104, "Q"), "blockfree": (112, "B"),
        "num_blocks": (116, "I"), "line": (124, "i"), "file": (128, "Q"), "blocks": (136, "Q"),
        "profile_pool": (144, "Q"), "ptrs": (152, "320s"), "mtx": (472, "Q")}),
    "qk_mem_ptr_array": (40, {"capacity": (0, "i"), "ptrs": (8, "Q")}),
    "qk_mem_ptr": (48, {
        "address": (0, "Q"), "file": (16, "Q"), "count": (24, "Q"), "size": (32, "Q"),
        "seq": (40, "I"), "line": (44, "H"), "kind": (46, "B")}),
    "qk_mem_tag": (48, {"name": (0, "8s")}),
    "qk_mem_block": (32, {
        "next": (0, "Q"), "capacity": (8, "Q"), "low_mark": (16, "Q"), "high_mark": (24, "Q")}),
    STORE: (168, {"chunks_": (0, "160s"), "count_": (164, "I")}),
    "qk::mem::profile::SiteTable": (192, {"sites_": (24, "168s")}),
    "qk::mem::profile::TagLevel": (32, {"name": (0, "8s")}),
    "qk::mem::profile::Pool": (832, {
        "number": (88, "I"), "hid": (92, "i"), "marks": (96, "320s"), "tag": (416, "I"),
        "unrecorded": (432, "24s"), "from_before": (512, "128s"), "not_recorded": (640, "128s")}),
    "qk::mem::profile::Marks": (40, {"marks_": (0, "Q"), "capacity_": (8, "I")}),
    "qk::mem::profile::Mark": (8, {"site": (0, "I"), "event": (4, "I")}),
    "qk::mem::profile::AddressTable": (24, {"entries_": (0, "Q"), "capacity_": (8, "Q")}),
    "qk::mem::profile::Unrecorded": (24, {
        "address": (0, "Q"), "bytes": (8, "Q"), "mark": (16, "8s")}),
    "qk::mem::profile::SiteKey": (24, {
        "file": (0, "Q"), "line": (8, "I"), "pool": (12, "I"), "label": (20, "I")}),
    "qk::mem::profile::Site": (128, {
        "key": (0, "24s"), "number": (24, "I"), "live_bytes": (32, "Q"), "live_blocks": (40, "Q"),
        "made_blocks": (80, "Q")}),
    "qk::mem::profile::Label": (64, {"outer": (0, "I"), "text": (4, "60s")}),
    "qk::mem::history::History": (40, {"all_": (0, "Q"), "chunks_": (24, "Q")}),
    "qk::mem::history::Chunk": (8192, {
        "next_of_all": (0, "Q"), "writer": (16, "Q"), "entries": (32, "8160s")}),
    "qk::mem::history::Entry": (32, {
        "address": (0, "Q"), "path": (8, "Q"), "allocation": (16, "Q"),
        "bytes_and_release": (24, "Q")}),
}

NEEDS_SYMBOLS = ("need the debug symbols of the library, which the package libqkmem1-dbgsym has")


def read(address, count):
    """Bytes of the program. Raises gdb.MemoryError if one of them is missing."""
    if count == 0:
        return b""
    if not 0 < address < 1 << 64:
        raise gdb.MemoryError(f"Cannot access memory at address {address:#x}")
    return gdb.selected_inferior().read_memory(address, count).tobytes()


def word_at(address, code="Q"):
    return struct.unpack("<" + code, read(address, struct.calcsize(code)))[0]


def clean(data):
    """The text before the first null byte, without what would disturb a terminal."""
    text = data.split(b"\0", 1)[0].decode("utf-8", "replace")
    return "".join(character if character.isprintable() else "?" for character in text)


def text_at(address, most=256):
    """A text that ends with a null byte, or what can be read of it."""
    data = b""
    try:
        while b"\0" not in data and len(data) < most:
            data += read(address + len(data), 16 - (address + len(data)) % 16)
    except gdb.MemoryError:
        if not data:
            return f"<a name at {address:#x}, which cannot be read>"
    return clean(data)


class Layout:
    """Where the fields of a type are."""

    def __init__(self, name, size, fields):
        self.size = size
        self.fields = fields
        text, end = "<", 0
        for offset, code in sorted(fields.values()):
            text += f"{offset - end}x{code}"
            end = offset + struct.calcsize("<" + code)
        self._struct = struct.Struct(text + f"{size - end}x")
        self._type = collections.namedtuple(
            re.sub(r"\W", "_", name),
            [field.strip("_") for field, _ in sorted(fields.items(), key=lambda item: item[1])])

    def of(self, data):
        return self._type._make(self._struct.unpack(data))

    def at(self, address):
        return self.of(read(address, self.size))

    def each(self, data):
        return map(self._type._make, self._struct.iter_unpack(data))


def fields_in_debug_info(name):
    """A layout as the debug symbols have it: bytes, and the fields that LAYOUTS names."""
    found = gdb.lookup_type(name)
    fields = {}
    for field in found.fields():
        if field.name in LAYOUTS[name][1]:
            code = LAYOUTS[name][1][field.name][1]
            if struct.calcsize("<" + code) != field.type.sizeof:
                code = f"{field.type.sizeof}s"
            fields[field.name] = (field.bitpos // 8, code)
    return found.sizeof, fields


class Layouts:
    """The layouts of one copy of the library, by the number in its table."""

    def __init__(self, number):
        self._fits = number == LAYOUT
        self._made = {}

    def __getitem__(self, name):
        if name not in self._made:
            known = LAYOUTS[name]
            if not self._fits:
                try:
                    known = fields_in_debug_info(name)
                except gdb.error:
                    known = (0, {})
                if known[1].keys() != LAYOUTS[name][1].keys():
                    raise gdb.GdbError("This program has another version of qkmem than these "
                                       "commands: they " + NEEDS_SYMBOLS + ".")
            self._made[name] = Layout(name, *known)
        return self._made[name]
