"""Commands of gdb that show what qkmem knows of a program's memory, and pretty printers.

They only read memory: so they work on a process and on a core file, and never call a function of
the program. A note in each module that contains the library leads to a table of its variables,
which is in src/life/debugger_table.cpp. No symbols are needed.
"""

import gdb
import gdb.printing

from . import commands, printers


def register(objfile):
    """Adds commands and printers. `objfile` is what the printers belong to, or None for all."""
    commands.register()
    gdb.printing.register_pretty_printer(objfile, printers.printers(), replace=True)
