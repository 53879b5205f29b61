"""Writes qkmem.7 from docs/variables.md and the conventions in qkmem/qkmem.h."""

import re

import roff

LINK = re.compile(r"\[([^]]+)\]\([^)]+\)")
MARK = re.compile(r"(`[^`]+`|\*\*[^*]+\*\*|\*[^*]+\*)")
CONVENTION = re.compile(r"\((\d+)\) ([\w -]+)\. (.*)")


def marked(text):
    """A line of Markdown, its links as their texts."""
    result = ""
    for piece in MARK.split(LINK.sub(r"\1", text)):
        if piece.startswith("`"):
            result += roff.bold(piece[1:-1])
        elif piece.startswith("**"):
            result += roff.bold(piece[2:-2])
        elif piece.startswith("*") and len(piece) > 2:
            result += roff.italic(piece[1:-1])
        else:
            result += roff.escaped(piece)
    return result


def write_row(page, row):
    cells = [cell.strip() for cell in row.strip("|").split(" | ")]
    if len(cells) != 2:
        raise ValueError(f"a manual page has tables of two columns only: {row}")
    page.entry(marked(cells[0]), marked(cells[1]))


def write_table(page, rows):
    """The heading of a table says what a reader sees in the rows."""
    with page.indented():
        for row in rows[2:]:
            write_row(page, row)


def blocks_of(markdown):
    """Paragraphs, tables, items of lists, and blocks of code, each as its lines."""
    code = None
    block = []
    for line in re.sub(r"<!--.*?-->\n?", "", markdown, flags=re.DOTALL).split("\n"):
        if code is not None:
            if line.startswith("```"):
                yield "code", code
                code = None
            else:
                code.append(line)
            continue
        is_new = not line or line.startswith(("```", "- ", "#"))
        if block and (is_new or block[0][0] == "#"):
            kind = {"#": "heading", "|": "table", "-": "item"}.get(block[0][0], "paragraph")
            yield kind, block
            block = []
        if line.startswith("```"):
            code = []
        elif line:
            block.append(line)
    if block:
        yield "paragraph", block


def write_markdown(page, text):
    """Headings of the second level become sections, those below them entries or subsections."""
    for kind, lines in blocks_of(text):
        joined = " ".join(line.strip() for line in lines)
        if kind == "heading":
            level, title = joined.split(" ", 1)
            if level == "##":
                page.section(title)
            elif level == "###":
                page.subsection(title)
            else:
                page.section("Environment")
        elif kind == "code":
            page.code("\n".join(lines))
        elif kind == "table":
            write_table(page, lines)
        elif kind == "item":
            page.request(r".IP \(bu 2")
            page.text(marked(joined[2:]))
        else:
            page.paragraph(marked(joined))


def conventions_of(comment):
    """Pairs of a title and paragraphs, and the paragraphs before the first one."""
    paragraphs = [" ".join(line.strip() for line in block.split("\n"))
                  for block in re.split(r"\n\s*\n", "\n".join(comment).strip())]
    found = []
    for paragraph in paragraphs:
        match = CONVENTION.match(paragraph)
        if match:
            found.append((f"({match[1]}) {match[2]}", match[3]))
    return paragraphs[:2], found


def told(manual, text):
    """Text of the header, with its calls marked."""
    result = ""
    for piece in re.split(r"(`[^`]+`|\b(?:qk|QK)_\w+\(\))", text):
        if piece.startswith("`"):
            result += roff.bold(piece[1:-1])
        elif piece.endswith("()") and piece[:-2] in manual.names():
            result += f"{roff.bold(piece[:-2])}()"
        else:
            result += roff.escaped(piece)
    return result


def write_guide(manual, markdown):
    page = roff.Page("qkmem", 7, manual.version, manual.date)
    header = next(header for header in manual.headers if header.name == "qkmem.h")
    introduction, conventions = conventions_of(header.comment)
    page.section("Name")
    page.text(r"qkmem \- accounts for memory and finds its misuse inside a running program")
    page.section("Description")
    page.paragraph(told(manual, introduction[0]))
    page.paragraph(told(manual, introduction[1].split(" Environment variables ")[0]))
    write_markdown(page, markdown)
    page.section("Conventions")
    page.paragraph("They hold for every call unless its page says otherwise.")
    for title, text in conventions:
        page.entry(roff.bold(title), told(manual, text))
    page.section("Errors")
    page.paragraph(told(manual, "The codes that qk_mem_error() returns, besides 5000 plus an errno "
                                "value."))
    for code in manual.codes:
        page.entry(manual.codes.term(code), roff.escaped(manual.codes.meaning(code)))
    page.section("See also")
    names = [f"{roff.bold(call.name())}(3)" for call in manual.call_pages]
    page.text(", ".join(sorted(names)))
    return page.finished()
