"""Reads what `qkmem page` has put on a page, without the page's script."""

import base64
import html
import json
import re
import zlib


class Numbers:
    """Numbers of seven bits a byte, the lowest first."""

    def __init__(self, data):
        self.data = data
        self.at = 0

    def next(self):
        number = shift = 0
        while True:
            byte = self.data[self.at]
            self.at += 1
            number |= (byte & 127) << shift
            shift += 7
            if byte < 128:
                return number

    def matrix(self, rows, columns):
        """Rows of numbers, each given as the change since the one before."""
        return [list(self.row(columns)) for _ in range(rows)]

    def row(self, columns):
        value = 0
        for _ in range(columns):
            change = self.next()
            value += -(change + 1) // 2 if change % 2 else change // 2
            yield value


class Run:
    """A run on a page."""

    def __init__(self, facts, data):
        self.facts = facts
        self.rows = facts["rows"]
        self.has_levels = bool(data)
        if not data:
            return
        numbers = Numbers(data)
        self.steps = numbers.next()
        self.moments = facts["moments"]
        self.levels = numbers.matrix(len(self.rows), facts["buckets"])
        exact = numbers.matrix(4 * len(self.rows), len(self.moments))
        self.exact = [exact[4 * row:4 * row + 4] for row in range(len(self.rows))]
        self.mores = numbers.matrix(len(self.rows), facts["buckets"])
        if numbers.at != len(data):
            raise ValueError(f"{len(data) - numbers.at} bytes are left")


class Page:
    """A page as a whole."""

    def __init__(self, name):
        with open(name, encoding="utf-8") as file:
            self.text = file.read()
        facts = json.loads(self.unpacked("facts"))
        self.lines, self.handles, self.frames = (facts[key] for key in ("lines", "handles", "frames"))
        self.runs = [Run(run, self.unpacked(f"levels-{number}"))
                     for number, run in enumerate(facts["runs"])]

    def unpacked(self, name):
        letters = re.search(f'<script type="text/plain" id="{name}">(.*?)</script>', self.text)[1]
        return zlib.decompress(base64.b64decode(letters)) if letters else b""

    def between(self, begin, end):
        return self.text.partition(begin)[2].partition(end)[0]

    def plain(self):
        """The text of what is there without the script."""
        tags = re.sub(r"<[^>]*>", "\n", self.between('<section id="plain">', "</section>"))
        return [line for line in html.unescape(tags).splitlines() if line.strip()]

    def key(self, row):
        """What the command tells rows of sites apart by: its name and its handle's number."""
        return self.lines[row["line"]]["name"], self.handles[row["handle"]]["number"]

    def sums(self, run, figures_of):
        """Bytes and blocks by site, of what a row's number gives; those of no block left out."""
        sums = {}
        for number, row in enumerate(run.rows):
            figures = figures_of(number, row)
            if any(figures):
                before = sums.get(self.key(row), (0, 0))
                sums[self.key(row)] = tuple(map(sum, zip(before, figures)))
        return sums
