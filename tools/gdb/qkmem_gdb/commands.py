"""The commands."""

import collections
import struct

import gdb

from .addresses import NOUNS, know_address, many
from .layouts import NEEDS_SYMBOLS, clean, read
from .library import STORE_FIRST_BITS
from .modules import copies

def show(headings, rows):
    """Prints a table. A heading that begins with a blank is over numbers."""
    rows = [[heading.strip() for heading in headings]] + rows
    widths = [max(map(len, column)) for column in zip(*rows)]
    for row in rows:
        cells = [cell.rjust(width) if heading[0] == " " else cell.ljust(width)
                 for cell, width, heading in zip(row, widths, headings)]
        print("  ".join(cells).rstrip())


def show_each(all_copies, part):
    """Calls `part` for each copy of the library, and tells what was damaged."""
    for copy in all_copies:
        if len(all_copies) > 1:
            print(f"The copy of qkmem in {copy.module}:")
        part(copy)
    show_damage(all_copies)


def show_damage(all_copies):
    for copy in all_copies:
        for what in copy.damage:
            print(f"Damaged: {what}")


class Command(gdb.Command):
    """A command without tracebacks: what goes wrong is told in a sentence."""

    def __init__(self, name, kind=gdb.COMMAND_DATA, prefix=False):
        super().__init__(name, kind, gdb.COMPLETE_SYMBOL, prefix)

    def invoke(self, argument, from_tty):
        del from_tty
        try:
            self.run(argument)
        except (gdb.MemoryError, gdb.error) as error:
            raise gdb.GdbError(str(error)) from None
        except (ValueError, OverflowError, struct.error) as error:
            raise gdb.GdbError(f"What is there makes no sense: {error}") from None

    def run(self, argument):
        raise NotImplementedError


class QkmemCommand(Command):
    """What qkmem knows of the program's memory. It is only read, in a process or a core file."""

    def __init__(self):
        super().__init__("qkmem", prefix=True)

    def run(self, argument):
        gdb.execute("help qkmem")


class HandlesCommand(Command):
    """All handles: their options, what is alive on them, and where they were made.

Usage: qkmem handles

The overhead is memory of the library itself."""

    def __init__(self):
        super().__init__("qkmem handles")

    def run(self, argument):
        show_each(copies(), self._show)

    @staticmethod
    def _show(copy):
        rows = [[str(handle.id), handle.tag_name, handle.options(), f"{handle.qty:,}",
                 f"{handle.amount:,}", f"{handle.overhead_amount:,}",
                 f"{copy.name_at(handle.file)}:{handle.line}"] for handle in copy.handles()]
        if rows:
            show([" handle", "tag", "options", " pointers", " bytes", " overhead", "made at"], rows)
        else:
            print("There are no handles: no call was made yet, or the program has ended.")


class SitesCommand(Command):
    """The places that have allocated memory, if the profile is or was on.

Usage: qkmem sites

Bytes and blocks are alive, those made include what was freed. Those that hold most come first."""

    def __init__(self):
        super().__init__("qkmem sites")

    def run(self, argument):
        show_each(copies(), self._show)

    def _show(self, copy):
        pools = {pool.number: pool for pool in copy.pools()}
        if not pools and not copy.damage:
            print("The profile has not been on: QK_MEM_PROFILE=SITES switches it on.")
            return
        sums = collections.Counter()
        unnamed = False
        for site in copy.sites():
            key = copy.profile("SiteKey").of(site.key)
            pool = pools.get(key.pool)
            if site.made_blocks == 0 and site.live_blocks == 0:
                continue
            place = copy.place_of_site(site)
            if key.label and not place.startswith("("):
                label = self._label(key.label)
                unnamed = unnamed or label is None
                place += f" [{label or f'label {key.label}'}]"
            where = (pool.hid if pool else 0, copy.tag_of(pool) if pool else "", place)
            for index, figure in enumerate((site.live_bytes, site.live_blocks, site.made_blocks)):
                sums[where, index] += figure
        rows = [[sums[where, index] for index in range(3)] + list(where)
                for where, index in list(sums) if index == 0]
        rows.sort(key=lambda row: (-row[0], -row[2], row[3:]))
        if rows:
            show([" bytes", " blocks", " made", " handle", "tag", "site"],
                 [[f"{row[0]:,}", f"{row[1]:,}", f"{row[2]:,}", str(row[3]), *row[4:]]
                  for row in rows])
        else:
            print("The profile has seen no allocation yet.")
        if unnamed:
            print(f"The texts of labels {NEEDS_SYMBOLS}.")

    @staticmethod
    def _label(number):
        """The text of a label with those around it, the outermost first; None without symbols."""
        try:
            store = gdb.parse_and_eval("'qk::mem::profile::(anonymous namespace)::labels'")
            texts = []
            while number and len(texts) < 100:
                position = number - 1 + (1 << STORE_FIRST_BITS)
                high = position.bit_length() - 1
                label = store["chunks_"][high - STORE_FIRST_BITS] + (position ^ 1 << high)
                number = int(label["outer"])
                texts.insert(0, clean(read(int(label["text"].address), label["text"].type.sizeof)))
            return " > ".join(texts)
        except gdb.error:
            return None


class DescribeCommand(Command):
    """What an address is: a block, a freed block, a stack, static data.

Usage: qkmem describe ADDRESS

ADDRESS is an expression, such as a number, a pointer, or the name of a variable.
"once" tells what was there before. The event of a block is the profile's number of it
if the profile watches the handle, otherwise that of the log."""

    def __init__(self):
        super().__init__("qkmem describe")

    def run(self, argument):
        if not argument.strip():
            raise gdb.GdbError("Usage: qkmem describe ADDRESS")
        address = self._address(argument)
        all_copies = copies()
        for words in know_address(all_copies, address):
            print(f"{address:#x}: {words}")
        show_damage(all_copies)

    @staticmethod
    def _address(expression):
        allowed = "on" if gdb.parameter("may-call-functions") else "off"
        gdb.execute("set may-call-functions off")
        try:
            value = gdb.parse_and_eval(expression)
            pointed = (gdb.TYPE_CODE_ARRAY, gdb.TYPE_CODE_FUNC, gdb.TYPE_CODE_STRUCT)
            if value.type.strip_typedefs().code in pointed and value.address is not None:
                value = value.address
            return int(value) & (1 << 64) - 1
        finally:
            gdb.execute(f"set may-call-functions {allowed}")


class DumpCommand(Command):
    """The live blocks, one in each line, in the order of handles and events.

Usage: qkmem dump [HANDLE=number] [TAG=tag] [FILE=name] [MIN=bytes]

All conditions must hold. TAG= stands for handles without a tag, and FILE for the last part of a
file's name."""

    FILTERS = ("HANDLE", "TAG", "FILE", "MIN")

    def __init__(self):
        super().__init__("qkmem dump")

    def run(self, argument):
        wanted = self._filter(argument)
        show_each(copies(), lambda copy: self._show(copy, wanted))

    def _filter(self, argument):
        wanted = {}
        for word in gdb.string_to_argv(argument):
            name, _, value = word.partition("=")
            if name.upper() not in self.FILTERS or "=" not in word:
                raise gdb.GdbError(f"{word}: no filter. There are HANDLE=number, TAG=tag, "
                                   "FILE=name and MIN=bytes.")
            if name.upper() in ("HANDLE", "MIN") and not value.isdecimal():
                raise gdb.GdbError(f"{word}: {name.upper()} takes a number.")
            wanted[name.upper()] = value
        return wanted

    @staticmethod
    def _is_wanted(block, place, wanted):
        return (block.handle.id == int(wanted.get("HANDLE", block.handle.id))
                and block.handle.tag_name == wanted.get("TAG", block.handle.tag_name).upper()
                and block.bytes >= int(wanted.get("MIN", 0))
                and ("FILE" not in wanted or place.text.rpartition(":")[0] == wanted["FILE"]))

    def _show(self, copy, wanted):
        rows = []
        for block in copy.blocks():
            place = copy.place_of(block)
            if self._is_wanted(block, place, wanted):
                noun = NOUNS.get(block.kind, ("a block", ""))[0].split(" ", 1)[1]
                rows.append((block.handle.id, place.event, block, noun, place.text))
        rows.sort(key=lambda row: (row[0], row[1], row[2].address))
        if rows:
            show(["address", " bytes", "what", " handle", "tag", " event", "site"],
                 [[f"{block.address:#x}", f"{block.bytes:,}", noun, str(number),
                   block.handle.tag_name, str(event), place]
                  for number, event, block, noun, place in rows])
        total = sum(row[2].bytes for row in rows)
        print(f"{many(len(rows), 'block')} of {many(total)}")


def register():
    """Makes the commands known to gdb."""
    for command in (QkmemCommand, HandlesCommand, SitesCommand, DescribeCommand, DumpCommand):
        command()
