"""What a copy of the library knows, as far as it can be read.

Memory can be damaged. So nothing that is read is taken for granted, and each walk ends: what makes
no sense is noted in Copy.damage and left out.
"""

import collections
import os
import struct

import gdb

from .layouts import LAYOUTS, STORE, TABLE, Layout, Layouts, clean, read, text_at, word_at

SITE_BITS = 24
FROM_BEFORE_SITE = (1 << SITE_BITS) - 2
NOT_RECORDED_SITE = (1 << SITE_BITS) - 1
MOST_SITES = (1 << SITE_BITS) - 3
STORE_FIRST_BITS, STORE_CHUNKS = 5, 20
BYTE_BITS, LINE_BITS = 38, 23
MOST_HANDLES = 1 << 24
ARRAYS_OF_HANDLE = 8
MOST_DAMAGE = 20
STEP = 4096  # so many elements are read at once

POINTER_ARRAY, HANDLE_MEMORY, TRACKER, BLOCK = "PHTB"

Block = collections.namedtuple("Block", "address bytes kind handle file line seq mark")
Freed = collections.namedtuple("Freed", "address bytes mark path line ending pool")
Place = collections.namedtuple("Place", "text event")


class Copy:
    """A copy of the library in the program. A process can have several, in different modules."""

    def __init__(self, module, table):
        self.module = module
        self.damage = []
        self._layouts = Layouts(word_at(table))
        self._table = Layout(TABLE, *LAYOUTS[TABLE]).at(table)
        self._names = {}
        self._sites = {}
        self._found_sites = None

    def layout(self, name):
        short = {"handle": "qk_mem_handle", "slot": "qk_mem_ptr", "block": "qk_mem_block"}
        return self._layouts[short.get(name, name)]

    def profile(self, name):
        return self._layouts["qk::mem::profile::" + name]

    def doubt(self, what):
        """Notes damage, which does not stop a command."""
        if what not in self.damage and len(self.damage) <= MOST_DAMAGE:
            enough = len(self.damage) == MOST_DAMAGE
            self.damage.append("and more" if enough else what)

    def name_at(self, address):
        if address not in self._names:
            self._names[address] = os.path.basename(text_at(address)) if address else ""
        return self._names[address]

    def elements(self, layout, address, count, what):
        """All elements of an array, as far as they can be read, in lists of up to STEP."""
        for first in range(0, count, STEP):
            size = min(STEP, count - first)
            try:
                data = read(address + first * layout.size, size * layout.size)
            except gdb.MemoryError as error:
                self.doubt(f"{what}: {error}")
                return
            yield layout.each(data)

    # -- Handles and their records

    def handles(self):
        """All handles that can be read, by their number."""
        slots = word_at(self._table.slots, "i")
        array = word_at(self._table.handles)
        if array == 0 or slots == 0:
            return
        if not 0 < slots <= MOST_HANDLES:
            self.doubt(f"the array of handles: it cannot have {slots:,} slots")
            return
        pointers = Layout("Pointer", 8, {"address": (0, "Q")})
        number = 0
        for step in self.elements(pointers, array, slots, "the array of handles"):
            for slot in step:
                number += 1
                if slot.address:
                    handle = self._handle(number, slot.address)
                    if handle:
                        yield handle

    def _handle(self, number, address):
        try:
            handle = Handle(self, address, self.layout("handle").at(address))
        except gdb.MemoryError as error:
            self.doubt(f"handle {number}: {error}")
            return None
        if handle.id != number:
            self.doubt(f"handle {number}: what is at {address:#x} is no record of it")
            return None
        return handle

    def handle_array(self):
        """Address and bytes of the array of handles."""
        slots = word_at(self._table.slots, "i")
        return word_at(self._table.handles), 8 * slots if 0 < slots <= MOST_HANDLES else 0

    def handle_of(self, number):
        """The handle of a number, or None."""
        slots, array = word_at(self._table.slots, "i"), word_at(self._table.handles)
        address = word_at(array + 8 * (number - 1)) if array and 0 < number <= slots else 0
        return self._handle(number, address) if address else None

    def arrays(self, handle):
        """The number, address and slots of each of a handle's pointer arrays."""
        for number, array in enumerate(self.layout("qk_mem_ptr_array").each(handle.ptrs)):
            if array.ptrs == 0 or array.capacity == 0:
                continue
            what = f"{handle}: its array {number} of records"
            try:
                own = self.layout("slot").at(array.ptrs)
            except gdb.MemoryError as error:
                self.doubt(f"{what}: {error}")
                continue
            # Its first slot is the record of the array itself.
            if own.address != array.ptrs or chr(own.kind) != POINTER_ARRAY:
                self.doubt(f"{what}: it does not begin with its own record")
                continue
            if own.count != array.capacity:
                self.doubt(f"{what}: it has {array.capacity:,} slots, but {own.count:,} by its "
                           "own record")
            yield number, array.ptrs, max(0, min(array.capacity, own.count))

    def records(self, handle):
        """All records of a handle as blocks, those of the library's own memory among them."""
        pool = self.pool(handle)
        for number, address, slots in self.arrays(handle):
            what = f"{handle}: its array {number} of records"
            marks = self._marks(pool, number, slots) if pool else None
            for step in self.elements(self.layout("slot"), address, slots, what):
                for slot in step:
                    mark = next(marks, None) if marks else None
                    if slot.address in (0, self._table.set_aside):
                        continue
                    yield Block(slot.address, slot.count * slot.size, chr(slot.kind), handle,
                                slot.file, slot.line, slot.seq, mark)

    def _marks(self, pool, number, slots):
        marks = list(self.profile("Marks").each(pool.marks))[number]
        what = f"handle {pool.hid}: its array {number} of marks"
        for step in self.elements(self.profile("Mark"), marks.marks, min(marks.capacity, slots),
                                  what):
            yield from step

    def unrecorded(self, handle):
        """Live memory of a handle that only the profile knows."""
        pool = self.pool(handle)
        if not pool:
            return
        table = self.profile("AddressTable").of(pool.unrecorded)
        if table.capacity & (table.capacity - 1):
            self.doubt(f"{handle}: its table of addresses is damaged")
            return
        for step in self.elements(self.profile("Unrecorded"), table.entries, table.capacity,
                                  f"{handle}: its table of addresses"):
            for entry in step:
                if entry.address:
                    yield Block(entry.address, entry.bytes, " ", handle, 0, 0, 0,
                                self.profile("Mark").of(entry.mark))

    def blocks(self):
        """All live blocks of the program, in the order of handles."""
        for handle in self.handles():
            for block in self.records(handle):
                if block.kind not in (POINTER_ARRAY, HANDLE_MEMORY, TRACKER, BLOCK):
                    yield block
            yield from self.unrecorded(handle)

    def managed(self, handle):
        """The blocks that a handle hands out pieces of: address and header."""
        return self._list(handle.blocks, self.layout("block"), "next", handle.num_blocks,
                          f"{handle}: its list of blocks")

    def _list(self, address, layout, link, count, what):
        """The address and contents of each element of a list that has so many at most."""
        seen = set()
        while address:
            if address in seen or len(seen) == count:
                self.doubt(f"{what} does not end where it should")
                return
            seen.add(address)
            try:
                element = layout.at(address)
            except gdb.MemoryError as error:
                self.doubt(f"{what}: {error}")
                return
            yield address, element
            address = getattr(element, link)

    # -- The profile

    def pool(self, handle):
        """What the profile knows of a handle, or None."""
        if handle.profile_pool == 0:
            return None
        try:
            pool = self.profile("Pool").at(handle.profile_pool)
        except gdb.MemoryError as error:
            self.doubt(f"{handle}: what the profile knows of it: {error}")
            return None
        if pool.hid != handle.id:
            self.doubt(f"{handle}: the profile takes it for handle {pool.hid}")
            return None
        return pool

    def _store(self, data, layout, what):
        """The count of a store's objects, and a function from a number to an address."""
        store = self.layout(STORE).of(data)
        chunks = struct.unpack(f"<{STORE_CHUNKS}Q", store.chunks)
        count = store.count
        if count > MOST_SITES:
            self.doubt(f"{what}: there cannot be {count:,}")
            count = 0

        def address_of(number):
            position = number - 1 + (1 << STORE_FIRST_BITS)
            high = position.bit_length() - 1
            if not 0 < number <= MOST_SITES or not chunks[high - STORE_FIRST_BITS]:
                raise gdb.MemoryError(f"there is none of number {number}")
            return chunks[high - STORE_FIRST_BITS] + (position ^ 1 << high) * layout.size

        return count, address_of

    def _store_at(self, address, layout, what):
        return self._store(read(address, self.layout(STORE).size), layout, what)

    def pools(self):
        count, address_of = self._store_at(self._table.pools, self.profile("Pool"), "pools")
        for number in range(1, count + 1):
            try:
                yield self.profile("Pool").at(address_of(number))
            except gdb.MemoryError as error:
                self.doubt(f"what the profile knows of handles: {error}")
                return

    def pool_of(self, number):
        """A pool by its number, or None."""
        _, address_of = self._store_at(self._table.pools, self.profile("Pool"), "pools")
        try:
            return self.profile("Pool").at(address_of(number))
        except gdb.MemoryError as error:
            self.doubt(f"what the profile knows of handles: {error}")
            return None

    def tag_of(self, pool):
        layout = self.profile("TagLevel")
        _, address_of = self._store_at(self._table.tag_levels, layout, "tags")
        try:
            return clean(layout.at(address_of(pool.tag)).name)
        except gdb.MemoryError as error:
            self.doubt(f"the tag of handle {pool.hid}: {error}")
            return ""

    def _site_store(self):
        if self._found_sites is None:
            table = self.profile("SiteTable").at(self._table.sites)
            self._found_sites = self._store(table.sites, self.profile("Site"), "sites")
        return self._found_sites

    def sites(self):
        """All sites that can be read, the two that each pool has among them."""
        count, address_of = self._site_store()
        for number in range(1, count + 1):
            site = self._site(number, address_of)
            if site is None:
                break
            yield site
        for pool in self.pools():
            yield self.profile("Site").of(pool.from_before)
            yield self.profile("Site").of(pool.not_recorded)

    def _site(self, number, address_of):
        if number not in self._sites:
            try:
                site = self.profile("Site").at(address_of(number))
            except gdb.MemoryError as error:
                self.doubt(f"site {number}: {error}")
                site = None
            if site and site.number != number:
                self.doubt(f"site {number}: it says that it is site {site.number}")
                site = None
            self._sites[number] = site
        return self._sites[number]

    def place_of_site(self, site):
        if site.number == FROM_BEFORE_SITE:
            return "(from before the profile was on)"
        if site.number == NOT_RECORDED_SITE:
            return "(not recorded: the profile had no memory left)"
        key = self.profile("SiteKey").of(site.key)
        return f"{self.name_at(key.file)}:{key.line}"

    def place_of_mark(self, mark):
        """Where a block was allocated, as the profile knows it. Without a text if it doesn't."""
        number = mark.site & MOST_SITES + 2
        if not 0 < number <= MOST_SITES:
            return Place("", mark.event)
        site = self._site(number, self._site_store()[1])
        return Place(self.place_of_site(site) if site else "", mark.event)

    def place_of(self, block):
        """The line of a record has 16 bits, that of a site has all."""
        if block.mark and block.mark.site:
            place = self.place_of_mark(block.mark)
            if place.text:
                return place
        if not block.file:
            return Place("", block.seq)
        return Place(f"{self.name_at(block.file)}:{block.line}", block.seq)

    def chunks(self):
        """The address and contents of each chunk of the history."""
        history = self.layout("qk::mem::history::History").at(self._table.freed_blocks)
        return self._list(history.all, self.layout("qk::mem::history::Chunk"), "next_of_all",
                          history.chunks, "the history of freed blocks")

    def freed(self):
        for _, chunk in self.chunks():
            for entry in self.layout("qk::mem::history::Entry").each(chunk.entries):
                if not entry.address:
                    continue
                packed = entry.bytes_and_release
                mark = self.profile("Mark").of(struct.pack("<Q", entry.allocation))
                yield Freed(entry.address, packed & (1 << BYTE_BITS) - 1, mark, entry.path,
                            packed >> BYTE_BITS & (1 << LINE_BITS) - 1,
                            packed >> BYTE_BITS + LINE_BITS, chunk.writer)


class Handle:
    """The record of a handle. It has its fields, and a text such as "handle 3 SE"."""

    def __init__(self, copy, address, fields):
        self.copy = copy
        self.address = address
        self._fields = fields
        try:
            self.tag_name = clean(copy.layout("qk_mem_tag").at(fields.tag).name)
        except gdb.MemoryError as error:
            copy.doubt(f"the tag of handle {fields.id}: {error}")
            self.tag_name = ""

    def __getattr__(self, name):
        return getattr(self._fields, name)

    def __str__(self):
        return f"handle {self.id} {self.tag_name}".rstrip()

    def options(self):
        words = ["OVERHEAD" if chr(self.type) == "O" else "DATA"]
        words += ["AUTOFREE"] if self.autofree else []
        words += ["MULTITHREADED"] if self.mtx else []
        words += [f"BLOCKMGMT BLOCKSIZE={self.blocksize}"] if self.blockmgmt else []
        words += ["BLOCKFREE"] if self.blockfree else []
        return " ".join(words)
