"""Runs commands inside gdb, and writes what each prints.

GDB_SESSION is the name of a file with the commands, in JSON, which is replaced by their outputs.
"""

import json
import os

import gdb


def output_of(command):
    try:
        return gdb.execute(command, to_string=True)
    except gdb.error as error:
        return f"{error}\n"


def main():
    path = os.environ["GDB_SESSION"]
    with open(path, encoding="utf-8") as file:
        commands = json.load(file)
    outputs = [output_of(command) for command in commands]
    with open(path, "w", encoding="utf-8") as file:
        json.dump(outputs, file)


main()
