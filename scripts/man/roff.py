"""Writes manual pages in the language of man(7), as groff and mandoc read it."""

import re
import textwrap

WIDTH = 78


def escaped(text):
    """Text as it is to be seen, in which a - between words may become a hyphen."""
    text = text.replace("\\", r"\e")
    text = re.sub(r"(?<!\w)-(?=[\w=])|(?<=\S)--|-(?=\.)", lambda found: r"\-" * len(found[0]), text)
    return "".join(c if ord(c) < 128 else f"\\[u{ord(c):04X}]" for c in text)


def verbatim(text):
    """Text that can be copied from the page: quotes and minus signs stay what they are."""
    text = "".join({"\\": r"\e", "-": r"\-", "'": r"\(aq", "`": r"\(ga", "^": r"\(ha",
                    "~": r"\(ti"}.get(c, c) for c in text)
    return "".join(c if ord(c) < 128 else f"\\[u{ord(c):04X}]" for c in text)


def bold(text):
    return rf"\fB{verbatim(text)}\fR"


def italic(text):
    return rf"\fI{verbatim(text)}\fR"


def guarded(line):
    """A line that is text, whatever it begins with."""
    return rf"\&{line}" if line.startswith((".", "'")) else line


class Page:
    """A page under construction. Texts that it is given are escaped already."""

    def __init__(self, name, section, version, date):
        self._lines = ['.\\" Written by scripts/make_man.',
                       f'.TH {name.upper()} {section} "{date}" "qkmem {version}" "qkmem"',
                       # Names must not be hyphenated, and gaps between them look like blanks.
                       ".nr HY 0", ".hy 0", ".ad l"]

    def request(self, line):
        self._lines.append(line)

    def section(self, title):
        self.request(f'.SH "{title.upper()}"')

    def subsection(self, title):
        self.request(f'.SS "{title}"')

    def text(self, text):
        """Lines of a text, which begin no new paragraph."""
        lines = textwrap.wrap(text, WIDTH, break_long_words=False, break_on_hyphens=False)
        self._lines += [guarded(line) for line in lines]

    def _begin_paragraph(self):
        if not self._lines[-1].startswith((".SH", ".SS")):
            self.request(".PP")

    def paragraph(self, text):
        self._begin_paragraph()
        self.text(text)

    def entry(self, term, text):
        self.request(".TP")
        self._lines.append(guarded(term))
        self.text(text or r"\&")

    def code(self, text):
        self._begin_paragraph()
        self.request(".RS 4")
        self.lines(text)
        self.request(".RE")

    def lines(self, text):
        """Lines as they are."""
        self.request(".EX")
        self._lines += [guarded(verbatim(line)) for line in text.split("\n")]
        self.request(".EE")

    def indented(self):
        """Paragraphs and entries until the end of the block belong to the entry before it."""
        return Indented(self)

    def finished(self):
        return "\n".join(self._lines) + "\n"


class Indented:
    def __init__(self, page):
        self._page = page

    def __enter__(self):
        self._page.request(".RS")

    def __exit__(self, *error):
        self._page.request(".RE")
