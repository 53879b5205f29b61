"""What is known of an address, in sentences."""

import re

import gdb

from .layouts import read
from .library import HANDLE_MEMORY, TRACKER
from .modules import sections

# By the letter of a record: what it is, and what the place has done with it.
NOUNS = {"X": ("an external block", "registered"), "W": ("an object", "made"),
         "J": ("an array", "made"), "m": ("a piece", "allocated"), "c": ("a piece", "allocated"),
         "r": ("a piece", "allocated"), "s": ("a piece", "allocated")}

# What has become of a block, by history::Ending.
ENDINGS = ("freed", "resized", "deregistered", "gone with its handle")


def many(count, noun="byte"):
    return f"{count:,} {noun}{'' if count == 1 else 's'}"


def inside(offset, noun, count):
    """"a block of 40", or "3 bytes inside a block of 40"."""
    return (f"{many(offset)} inside " if offset else "") + f"{noun} of {count:,}"


def with_place(words, verb, place):
    if place.text.startswith("("):
        return f"{words}, {verb} {place.text}"
    if place.text:
        words += f", {verb} at {place.text}"
    return words + (f" (event {place.event})" if place.event else "")


def words_of_block(copy, start, block):
    noun, verb = NOUNS.get(block.kind, ("a block", "allocated"))
    return with_place(f"{start(noun)} on {block.handle}", verb, copy.place_of(block))


def innermost(blocks, address):
    """Of the blocks that an address is in, the one that begins last."""
    fitting = [block for block in blocks
               if block.address == address or 0 < address - block.address < block.bytes]
    return max(fitting, key=lambda block: block.address, default=None)


def know_live_block(copy, address, answers):
    del answers
    block = innermost(copy.blocks(), address)
    if block:
        yield words_of_block(
            copy, lambda noun: inside(address - block.address, noun, block.bytes), block)


def know_managed_block(copy, address, answers):
    """An address in a block that pieces are handed out from."""
    if answers:
        return
    for handle in copy.handles():
        if not handle.blockmgmt:
            continue
        for start, header in copy.managed(handle):
            offset = address - start - copy.layout("block").size
            if not 0 <= offset < header.capacity:
                continue
            block = inside(offset, f"the block of {handle}", header.capacity)
            if header.low_mark <= offset < header.high_mark:
                yield f"{block}, in the part that is handed out; the piece has no record"
            else:
                yield f"{block}, in a part that is free"


def own_ranges(copy):
    """The library's own memory: begin, bytes, and what it is."""
    yield (*copy.handle_array(), "the array of handles")
    for handle in copy.handles():
        yield handle.address, copy.layout("handle").size, f"the record of {handle}"
        for number, address, slots in copy.arrays(handle):
            yield (address, slots * copy.layout("slot").size,
                   f"array {number} of the records of {handle}")
        for block in copy.records(handle):
            if block.kind == HANDLE_MEMORY:
                yield block.address, block.bytes, f"memory of {handle} itself"
            elif block.kind == TRACKER:
                yield block.address, block.bytes, f"the tracker of an object on {handle}"
        for address, _ in copy.managed(handle):
            yield address, copy.layout("block").size, f"the header of a block of {handle}"
        if handle.profile_pool and copy.pool(handle):
            yield (handle.profile_pool, copy.profile("Pool").size,
                   f"what the profile knows of {handle}")
    for address, _ in copy.chunks():
        yield address, copy.layout("qk::mem::history::Chunk").size, "the history of freed blocks"


def know_own_memory(copy, address, answers):
    if answers:
        return
    for begin, count, what in own_ranges(copy):
        if 0 <= address - begin < count:
            offset = f"{many(address - begin)} inside " if address != begin else ""
            yield f"{offset}{what}, memory of the library itself"
            return


def know_freed_block(copy, address, answers):
    """
    The newest of the freed blocks, rather one that began at the address. What has become of a block
    is of interest even if its memory is in use again.
    """
    found = [freed for freed in copy.freed()
             if freed.address == address or 0 < address - freed.address < freed.bytes]
    if not found:
        return
    freed = max(found, key=lambda one: (one.address == address, one.mark.event))
    if answers and freed.address != address:
        return
    pool = copy.pool_of(freed.pool)
    handle = f" on handle {pool.hid} {copy.tag_of(pool)}".rstrip() if pool else ""
    words = f"once {inside(address - freed.address, 'a block', freed.bytes)}{handle}, "
    words += ENDINGS[freed.ending] if freed.ending < len(ENDINGS) else "released"
    if freed.path:
        words += f" at {copy.name_at(freed.path)}:{freed.line}"
    yield with_place(words, "allocated", copy.place_of_mark(freed.mark))


NEAR = 256


def guess_neighbour(copy, address, answers):
    """The nearest blocks that end before an address, and begin behind it."""
    if answers:
        return
    ends, begins = None, None
    for block in copy.blocks():
        past = address - block.address - block.bytes
        if 0 <= past < NEAR and (not ends or past < ends[0]):
            ends = (past, block)
        ahead = block.address - address
        if 0 < ahead < NEAR and (not begins or ahead < begins[0]):
            begins = (ahead, block)
    if ends:
        past = many(ends[0]) if ends[0] else "just"
        yield words_of_block(copy, lambda noun: f"{past} past the end of {noun} of "
                             f"{ends[1].bytes:,}", ends[1])
    if begins:
        yield words_of_block(copy, lambda noun: f"{many(begins[0])} before {noun} of "
                             f"{begins[1].bytes:,}", begins[1])


RED_ZONE = 128
MOST_FRAMES = 1000
MOST_OF_FRAME = 1 << 26


def frames_of_thread():
    """The range of each frame of the selected thread, with the frame."""
    frame, begin = gdb.newest_frame(), None
    for _ in range(MOST_FRAMES):
        if begin is None:
            begin = int(frame.read_register("sp")) - RED_ZONE
        older = frame.older()
        if older is None:
            frame.select()
            end = re.search(r"frame at (0x[0-9a-f]+)", gdb.execute("info frame", to_string=True))
            yield begin, int(end[1], 16) if end else begin, frame
            return
        end = int(older.read_register("sp"))
        if older.type() != gdb.SIGTRAMP_FRAME and frame.type() != gdb.SIGTRAMP_FRAME:
            yield begin, end, frame
        frame, begin = older, end


def frame_of_thread(address):
    """The frame of the selected thread that an address is in; None also if the stack is damaged."""
    try:
        return next((frame for begin, end, frame in frames_of_thread()
                     if begin <= address < end < begin + MOST_OF_FRAME), None)
    except gdb.error:
        return None


def know_stack(all_copies, address, answers):
    """The frame of a thread. To find it, threads have to be selected, which is undone."""
    del all_copies
    selected = gdb.selected_thread()
    if answers or selected is None:
        return
    try:
        shown = gdb.selected_frame()
    except gdb.error:
        shown = None
    try:
        for thread in sorted(gdb.selected_inferior().threads(), key=lambda one: one.num):
            thread.switch()
            frame = frame_of_thread(address)
            if frame is not None:
                name = f", {frame.name()}()" if frame.name() else ""
                yield f"on the stack of thread {thread.num}, in frame {frame.level()}{name}"
                return
    finally:
        selected.switch()
        if shown is not None and shown.is_valid():
            shown.select()


SYMBOL = re.compile(r"^(.*?)(?: \+ (\d+))? in section (\S+)(?: of .*)?$")


def know_module(all_copies, address, answers):
    del all_copies
    if answers:
        return
    section = next((one for one in sections() if one.begin <= address < one.end), None)
    if section is None:
        return
    kind = "code" if section.name in (".text", ".plt", ".init", ".fini") else "static data"
    found = SYMBOL.match(gdb.execute(f"info symbol {address:#x}", to_string=True).strip())
    name = f"{many(int(found[2]))} inside {found[1]}, " if found and found[2] else \
        f"{found[1]}, " if found else ""
    yield f"{name}{kind} of {section.module} ({section.name})"


def in_each_copy(know):
    """A knower of one copy of the library as one of all copies."""
    return lambda all_copies, address, answers: [
        words for copy in all_copies for words in know(copy, address, answers)]


# Each is asked in turn what it knows of an address, is told what those before it have answered, and
# answers with sentences.
KNOWERS = [in_each_copy(know_live_block), know_stack, know_module, in_each_copy(know_own_memory),
           in_each_copy(know_freed_block), in_each_copy(know_managed_block),
           in_each_copy(guess_neighbour)]


def know_address(all_copies, address):
    """All that is known of an address, the most certain first."""
    answers = []
    for know in KNOWERS:
        answers += know(all_copies, address, answers)
    if not answers:
        answers = ["on no handle, on no stack and in no module"]
        try:
            read(address, 1)
        except gdb.MemoryError:
            answers[0] += ", and it cannot be read"
    return answers
