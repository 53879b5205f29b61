#!/usr/bin/env python3
"""Checks that `qkmem run` leaves the terminal to the program that it runs.

usage: check_run.py WATCHED QKMEM
"""

import os
import sys
import tempfile

from terminal import Terminal


def expect(what, found):
    if not found:
        sys.exit(f"not so: {what}")


def ctrl_c_ends_a_program_that_has_no_wish_of_its_own(terminal, command, program):
    terminal.run(f"{command} run -- sh -c '{program}; echo sleeps; sleep 1000'; echo \"status $?\"")
    terminal.see("sleeps\n")
    terminal.press("C-c")
    seen = terminal.see("qkmem: sh was ended by SIGINT (Interrupt)\n",
                        "100 B in 1 block was never released")
    expect("the shell has seen a command that was ended by the key", "\nstatus" not in seen)
    terminal.type("echo \"ended with $?\"")
    terminal.see("ended with 130\n")


def a_program_decides_what_ctrl_c_means(terminal, command, program):
    terminal.run(f"{command} run -- {program} wait; echo \"status $?\"")
    terminal.see("waiting\n")
    terminal.press("C-c")
    terminal.see("qkmem: watched ended with 7\n", "100 B in 1 block was never released",
                 "status 7\n")


def ctrl_z_stops_a_program_and_fg_goes_on(terminal, command, program):
    terminal.run(f"{command} run -- {program} wait; echo \"status $?\"")
    terminal.see("waiting\n")
    terminal.press("C-z")
    terminal.see("Stopped", "status 148\n")
    terminal.type("jobs -l")
    terminal.see(f"{command} run -- {program} wait")
    terminal.run("fg; echo \"after that $?\"")
    terminal.see(f"{command} run -- {program} wait")
    terminal.press("C-c")
    terminal.see("qkmem: watched ended with 7\n", "after that 7\n")


def a_program_reads_from_the_terminal(terminal, command, program):
    terminal.run(f"{command} run -- sh -c 'read line; {program}; echo \"it has read $line\"'")
    terminal.type("some words")
    terminal.see("it has read some words\n", "qkmem: sh ended with 0\n")


def a_program_that_cannot_be_run_has_the_codes_of_a_shell(terminal, command, _):
    for name, code, why in (("./nothing", 127, "./nothing: No such file or directory"),
                            ("/", 126, "/: Permission denied")):
        terminal.run(f"{command} run -- {name}; echo \"status $?\"")
        terminal.see(why, f"status {code}\n")


def main():
    program, command = map(os.path.abspath, sys.argv[1:])
    claims = (ctrl_c_ends_a_program_that_has_no_wish_of_its_own,
              a_program_decides_what_ctrl_c_means,
              ctrl_z_stops_a_program_and_fg_goes_on,
              a_program_reads_from_the_terminal,
              a_program_that_cannot_be_run_has_the_codes_of_a_shell)
    with tempfile.TemporaryDirectory() as folder:
        os.symlink(command, f"{folder}/qkmem")
        os.symlink(program, f"{folder}/watched")
        with Terminal(folder) as terminal:
            for claim in claims:
                claim(terminal, "./qkmem", "./watched")
                print(f"ok: {claim.__name__.replace('_', ' ')}")


if __name__ == "__main__":
    main()
