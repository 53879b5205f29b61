"""What the checks of exports share: a program's events, and what the command answers of them."""

import collections
import json
import os
import re
import subprocess

from viewers import expect_equal, run

ROUNDS = "40"
RECORDING = "run.qkm"
TRACE = "run.tdf"
FIGURES = ("bytes", "blocks", "peak_bytes", "peak_blocks", "made_bytes", "made_blocks")


def record(program):
    """Leaves a recording and a trace file of the same events in the current folder."""
    environment = dict(os.environ, QK_MEM_DEBUG="TRACE", QK_MEM_OPTIONS=f"DB={TRACE}",
                       QK_MEM_PROFILE=f"RECORD={RECORDING} STACKS=8 REPORT=/dev/null")
    ended = subprocess.run([program, ROUNDS], env=environment, capture_output=True, check=False)
    expect_equal("exit code and output", (ended.returncode, ended.stdout, ended.stderr),
                 (0, b"", b""))


def path_of(row, stack):
    """The stack of a row as exports have it: from the call that allocates to handle and tag."""
    site, *calls = stack.split(" < ")
    place, label = re.fullmatch(r"(\S+:\d+)(?: \[(.*)\])?", site).groups()
    path = calls or [place]
    if label is not None:
        path.append("label:" + label.replace(" ", "_"))
    path.append(f"handle:{row['handle']}")
    if row.get("tag"):
        path.append("tag:" + row["tag"])
    return tuple(path)


def summed(pairs):
    """Figures by key, from pairs of which several can have the same key; those of 0 left out."""
    sums = collections.Counter()
    for key, figure in pairs:
        sums[key] += figure
    return {key: figure for key, figure in sums.items() if figure != 0}


class Input:
    """A recording or a trace file, the command's answers about it, and its exports."""

    def __init__(self, command, name):
        self.command = command
        self.name = name
        self.whole = self.answer()

    def answer(self, *arguments):
        return json.loads(run(self.command, "top", "--json", "-n", "0", *arguments, self.name))

    def rows(self, *arguments):
        """Rows with the blocks at the peak, which the command gives with the peak only."""
        rows = self.answer(*arguments)["rows"]
        names = [name for name in rows[0] if name not in FIGURES]
        blocks = {tuple(row[name] for name in names): row["blocks"]
                  for row in self.answer("--at", "peak", *arguments)["rows"]}
        return [dict(row, peak_blocks=blocks[tuple(row[name] for name in names)]) for row in rows]

    def stacks(self):
        """The command's figures of each stack; of a trace file, which has none, of each site."""
        by = "stack" if self.name == RECORDING else "site"
        stacks = {path_of(row, row[by]): row for row in self.rows("--by", by)}
        return {path: {figure: row[figure] for figure in FIGURES} for path, row in stacks.items()}

    def export(self, form, name, *arguments):
        """Writes a file over what was there, and returns its name."""
        run(self.command, "export", "--to", form, "-f", "-o", name, *arguments, self.name)
        return name
