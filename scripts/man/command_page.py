"""Writes qkmem.1, and a page for each of its subcommands, from docs/command.md."""

import re

import roff
from guide_page import blocks_of, marked, write_markdown, write_table

# groff has no such characters. The command shows the others where the locale has no more.
BARS = str.maketrans("▁▂▃▄▅▆▇█", ".:-=+*%#")

TITLE = "reads what a program has written about its memory"


def sections_of(markdown):
    """The text before the first heading of the second level, and the sections by their titles."""
    head, *sections = re.split(r"^## ", markdown, flags=re.MULTILINE)
    pairs = (section.split("\n", 1) for section in sections)
    return head.split("\n", 1)[1], {title: text for title, text in pairs}


def rows_of(lines):
    """The two cells of each row of a table, without the heading."""
    return [[cell.strip() for cell in line.strip("|").split(" | ")] for line in lines[2:]]


class Questions:
    """The section that has the subcommands, the options, and how the command ends."""

    def __init__(self, text):
        blocks = list(blocks_of(text))
        tables = [lines for kind, lines in blocks if kind == "table"]
        if len(tables) != 2:
            raise ValueError("docs/command.md: the questions have a table of subcommands and one "
                             "of options")
        # "`history WHERE`" -> "history WHERE"
        self.subcommands = [(term.strip("`"), told) for term, told in rows_of(tables[0])]
        self.options = tables[1]
        self.endings = [lines for kind, lines in blocks if kind == "paragraph"][-1]

    def options_of(self, subcommand):
        """The rows of those that a subcommand has."""
        had = {"export": ("`--tag`", "`--from`", "`--at`", "`-o "), "symbolize": ("`-o ",)}
        return [row for row in self.options[2:]
                if row.startswith(tuple(f"| {term}" for term in had.get(subcommand, ("`",))))]


def see_also(page, names):
    page.section("See also")
    page.text(", ".join(f"{roff.bold(name)}({section})" for name, section in names))


def begin(manual, name, title):
    page = roff.Page(name, 1, manual.version, manual.date)
    page.section("Name")
    page.text(rf"{name} \- {roff.escaped(title)}")
    page.section("Synopsis")
    return page


def write_ending(page, questions):
    page.section("Exit status")
    page.paragraph(marked(" ".join(questions.endings)))


def write_subcommand(manual, term, told, questions):
    name = f"qkmem-{term.split()[0]}"
    answer = told.removeprefix("none: it ")
    page = begin(manual, name, re.sub(r"\[([^]]+)\]\([^)]+\)|`", r"\1", answer))
    synopsis = {"export": "--to FORMAT INPUT", "symbolize": "INPUT -o OUTPUT",
                "diff": ""}.get(term.split()[0], "INPUT")
    page.text(rf"{roff.bold('qkmem ' + term)} [option ...] {roff.escaped(synopsis)}".strip())
    page.section("Description")
    end = "" if answer.endswith("?") else "."
    page.paragraph(marked(answer[0].upper() + answer[1:] + end))
    page.paragraph(rf"INPUT is a recording or a trace file, plain or compressed; {roff.bold('-')} is "
                   "standard input.")
    page.section("Options")
    write_table(page, questions.options[:2] + questions.options_of(term.split()[0]))
    write_ending(page, questions)
    see_also(page, [("qkmem", 1), ("qkmem", 7)])
    return name, page.finished()


def write_command_pages(manual, markdown):
    """Yields the names of pages and their texts."""
    head, sections = sections_of(markdown.translate(BARS))
    questions = Questions(sections["Questions"])
    page = begin(manual, "qkmem", TITLE)
    page.text(rf"{roff.bold('qkmem')} subcommand [option ...] input")
    page.section("Description")
    write_markdown(page, head)
    for title, text in sections.items():
        page.section(title)
        write_markdown(page, text)
    subcommands = [write_subcommand(manual, *each, questions) for each in questions.subcommands]
    see_also(page, [(name, 1) for name, _ in subcommands] + [("qkmem", 7)])
    yield "qkmem", page.finished()
    yield from subcommands
