"""What the checks of this folder share: sessions of gdb, and comparing what they print."""

import difflib
import json
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

ROOT = pathlib.Path(__file__).resolve().parents[2]
SCRIPT = ROOT / "tools/gdb/qkmem-gdb.py"
SESSION = pathlib.Path(__file__).with_name("session.py")
SKIPPED = 77  # CTest knows it
NO_PTRACE = re.compile(r"ptrace: Operation not permitted|Could not trace the inferior")
TRACEBACK = re.compile(r"Traceback|Python Exception|Error occurred in Python")


def skip(why):
    print(why)
    sys.exit(SKIPPED)


def require_gdb():
    """Ends the check if gdb is missing, which only CI takes for a failure."""
    if shutil.which("gdb") is None:
        print("gdb not found; scripts/setup viewers installs it")
        sys.exit(1 if os.environ.get("CI") else SKIPPED)


def gdb_session(*arguments, commands, environment=None, source=SCRIPT, before=()):
    """
    Starts gdb, which runs the commands, and returns what each of them prints. `arguments` are for
    gdb, `before` are commands whose output doesn't matter, and `source` is loaded first.
    """
    kept = {name: value for name, value in os.environ.items()
            if not name.startswith(("QK_MEM_", "LD_", "DEBUGINFOD_"))}
    with tempfile.NamedTemporaryFile("w", suffix=".json") as file:
        json.dump(list(commands), file)
        file.flush()
        first = ["set pagination off", "set width 0", "set confirm off"]
        first += [f"source {source}"] if source else []
        executed = [word for command in [*first, *before, f"source {SESSION}"]
                    for word in ("-ex", command)]
        ended = subprocess.run(
            ["gdb", "-nx", "-batch", *executed, *map(str, arguments)], text=True,
            stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env=kept | {"GDB_SESSION": file.name} | (environment or {}), check=False, timeout=50)
        if NO_PTRACE.search(ended.stdout):
            skip(f"gdb may not trace programs here:\n{ended.stdout}")
        outputs = json.loads(pathlib.Path(file.name).read_text(encoding="utf-8"))
    if TRACEBACK.search(ended.stdout) or outputs == list(commands):
        sys.exit(f"gdb failed:\n{ended.stdout}")
    for command, output in zip(commands, outputs):
        if TRACEBACK.search(output):
            sys.exit(f"{command} failed:\n{output}")
    return outputs


def masked(text):
    """The lines of a text without what differs between runs, machines and builds."""
    text = re.sub(r"0x[0-9a-f]{8,}", "0x************", text)
    text = re.sub(r"qkmem\.cpp:\d+", "qkmem.cpp:*", text)
    text = re.sub(r"in frame \d+, wait_beside", "in frame *, wait_beside", text)
    text = re.sub(r"(?m)^\$\d+ = ", "", text)
    # How many arrays of records a handle has depends on addresses, and with it this column.
    text = re.sub(r"(?m) +overhead +made at$", " * made at", text)
    return re.sub(r"(?m)^( *\d+ .* (?:DATA|OVERHEAD) .*?) +[\d,]+(?= +\w+\.cpp:)", r"\1 *",
                  text).splitlines()


def expect_session(what, commands, outputs, expected):
    """Compares a session with an expected one, in which "(gdb) " leads a command."""
    shown = "".join(f"(gdb) {command}\n{output}" for command, output in zip(commands, outputs))
    found = masked(shown)
    wanted = masked(expected)
    if found != wanted:
        print("\n".join(difflib.unified_diff(wanted, found, "expected", f"found: {what}",
                                             lineterm="")))
        print(f"\n{shown}")
        sys.exit(1)


def commands_in(session):
    return re.findall(r"^\(gdb\) (.*)$", session, re.MULTILINE)
