"""Pretty printers of the C++ front."""

import gdb
import gdb.printing

from .addresses import many
from .modules import copies

def words_of_handle(number, generation):
    """"handle 3 SE, 2 pointers to 88 bytes"; less where the library cannot be read."""
    if number == 0:
        return "no handle"
    try:
        found = [handle for handle in (copy.handle_of(number) for copy in copies()) if handle]
    except (gdb.error, gdb.MemoryError, gdb.GdbError):
        return f"handle {number}"
    current = [handle for handle in found if generation in (0, handle.generation)]
    if not current:
        return f"handle {number}, which is gone"
    handle = current[0]
    return f"{handle}, {many(handle.qty, 'pointer')} to {many(handle.amount)}"


class HandlePrinter:
    """A qk::Handle, or a qk::On."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        return words_of_handle(int(self._value["number_"]), int(self._value["generation_"]))


class OnPrinter:
    """What has a qk::On, such as an allocator."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        return f"on {HandlePrinter(self._value['on_']).to_string()}"


class TrackerPrinter:
    """A tracker, with the address and the type of its object."""

    def __init__(self, value):
        self._value = value

    def to_string(self):
        owned = self._value.type.strip_typedefs().template_argument(0)
        return f"tracker of ({owned.strip_typedefs()}) {int(self._value['address']):#x}"


def printers():
    collection = gdb.printing.RegexpCollectionPrettyPrinter("qkmem")
    collection.add_printer("handle", r"^qk::(Handle|On)$", HandlePrinter)
    collection.add_printer("memory_resource", r"^qk::memory_resource$", OnPrinter)
    collection.add_printer("allocator", r"^qk::allocator<.*>$", OnPrinter)
    collection.add_printer("deleter", r"^qk::(Deleter<.*>|detail::Ownership)$", OnPrinter)
    collection.add_printer("tracker", r"^qk::Tracker<.*>$", TrackerPrinter)
    return collection
