"""Writes qkmem.1, and a page for each of its subcommands, from docs/command.md."""

import re

import roff
from guide_page import blocks_of, marked, write_markdown, write_table

# groff has no such characters. The command shows the others where the locale has no more.
BARS = str.maketrans("▁▂▃▄▅▆▇█", ".:-=+*%#")

TITLE = "says what a program has done with its memory"


def sections_of(markdown):
    """The text before the first heading of the second level, and the sections by their titles."""
    head, *sections = re.split(r"^## ", markdown, flags=re.MULTILINE)
    pairs = (section.split("\n", 1) for section in sections)
    return head.split("\n", 1)[1], {title: text for title, text in pairs}


def rows_of(lines):
    """The two cells of each row of a table, without the heading."""
    return [[cell.strip() for cell in line.strip("|").split(" | ")] for line in lines[2:]]


INPUT = ("INPUT is a recording, a trace file or a profile's report as JSON, plain or compressed; "
         rf"{roff.bold('-')} is standard input.")


class Subcommands:
    """A section that has subcommands, their options, and how they end."""

    def __init__(self, text, first_of_ending, inputs, left_out, synopses):
        blocks = list(blocks_of(text))
        tables = [lines for kind, lines in blocks if kind == "table"]
        if len(tables) != 2:
            raise ValueError("docs/command.md: a section with subcommands has a table of them, and "
                             "one of options")
        # "`history WHERE`" -> "history WHERE"
        self.all = [(term.strip("`"), told) for term, told in rows_of(tables[0])]
        self.options = tables[1]
        self.endings = next(lines for kind, lines in blocks
                            if kind == "paragraph" and lines[0].startswith(first_of_ending))
        self.inputs = inputs
        self.left_out = left_out
        self.synopses = synopses

    def options_of(self, subcommand):
        """The rows of those that a subcommand has."""
        return [row for row in self.options[2:]
                if not row.startswith(tuple(f"| {term}" for term in self.left_out.get(subcommand, ())))]

    def synopsis_of(self, subcommand):
        return self.synopses.get(subcommand, "INPUT" if self.inputs else "")


def questions_in(text):
    answers = ("`--by`", "`--sort`", "`-n`", "`--json`", "`--fail`")
    return Subcommands(
        text, "The command ends with", inputs=True,
        left_out={"export": answers,
                  "page": answers + ("`--at`",),
                  "symbolize": answers + ("`--tag`", "`--from`", "`--at`")},
        synopses={"export": "--to FORMAT INPUT", "page": "INPUT [LATER]", "symbolize": "INPUT -o OUTPUT", "diff": ""})


def runs_in(text):
    return Subcommands(text, "The program has the terminal", inputs=False,
                       left_out={"run": ("`--for",), "env": ("`-o ",), "explain": ("`-",),
                                 "doctor": ("`-",)},
                       synopses={"run": "[ARGUMENT ...]"})


def see_also(page, names):
    page.section("See also")
    page.text(", ".join(f"{roff.bold(name)}({section})" for name, section in names))


def begin(manual, name, title):
    page = roff.Page(name, 1, manual.version, manual.date)
    page.section("Name")
    page.text(rf"{name} \- {roff.escaped(title)}")
    page.section("Synopsis")
    return page


def synopsis_of(term, subcommands):
    """Options come before the arguments of a program that is run."""
    word, _, arguments = term.partition(" ")
    options = " [option ...]" if subcommands.options_of(word) else ""
    before = "" if arguments.startswith("--") else arguments
    after = arguments if arguments.startswith("--") else ""
    rest = roff.escaped(" ".join(filter(None, [after, subcommands.synopsis_of(word)])))
    return f"{roff.bold(f'qkmem {word} {before}'.strip())}{options} {rest}".strip()


def write_subcommand(manual, term, told, subcommands):
    word = term.split()[0]
    answer = told.removeprefix("none: it ")
    page = begin(manual, f"qkmem-{word}", re.sub(r"\[([^]]+)\]\([^)]+\)|`", r"\1", answer))
    page.text(synopsis_of(term, subcommands))
    page.section("Description")
    end = "" if answer.endswith("?") else "."
    page.paragraph(marked(answer[0].upper() + answer[1:] + end))
    if subcommands.inputs:
        page.paragraph(INPUT)
    options = subcommands.options_of(word)
    if options:
        page.section("Options")
        write_table(page, subcommands.options[:2] + options)
        page.section("Exit status")
        page.paragraph(marked(" ".join(subcommands.endings)))
    see_also(page, [("qkmem", 1), ("qkmem", 7)])
    return f"qkmem-{word}", page.finished()


def write_command_pages(manual, markdown):
    """Yields the names of pages and their texts."""
    head, sections = sections_of(markdown.translate(BARS))
    parts = [runs_in(sections["Run a program"]), questions_in(sections["Questions"])]
    page = begin(manual, "qkmem", TITLE)
    page.text(rf"{roff.bold('qkmem')} subcommand [option ...] input")
    page.section("Description")
    write_markdown(page, head)
    for title, text in sections.items():
        page.section(title)
        write_markdown(page, text)
    subcommands = [write_subcommand(manual, *each, part) for part in parts for each in part.all]
    see_also(page, [(name, 1) for name, _ in subcommands] + [("qkmem", 7)])
    yield "qkmem", page.finished()
    yield from subcommands
