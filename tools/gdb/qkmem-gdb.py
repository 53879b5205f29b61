"""Loads the commands and pretty printers of qkmem into gdb.

gdb itself does so together with the shared library. For a program that contains the static library,
type `source` and the path of this file.
"""

import importlib
import inspect
import os
import sys

import gdb


def folder_of_package(script):
    """The package is beside this file, or else where the file is a copy for gdb to find."""
    share, is_copy, _ = script.partition("/gdb/auto-load/")
    return os.path.join(share, "qkmem/gdb") if is_copy else os.path.dirname(script)


def load():
    script = os.path.realpath(inspect.currentframe().f_code.co_filename)
    sys.path.insert(0, folder_of_package(script))
    writes_no_bytecode = sys.dont_write_bytecode
    sys.dont_write_bytecode = True  # nothing is to be left behind when the package is removed
    try:
        importlib.import_module("qkmem_gdb").register(gdb.current_objfile())
    finally:
        sys.dont_write_bytecode = writes_no_bytecode
        del sys.path[0]


load()
