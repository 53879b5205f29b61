#!/usr/bin/env python3
"""Checks that docs/variables.md has each variable, keyword and value that the library reads, and no
other; and that `qkmem explain` knows what each keyword does.

usage: check_variables.py ROOT

On the page a heading of the second level names variables, and one of the third level a keyword as
users write it, with = if it has a value. The values of some keywords are the first column of the
table in their part of the page. Prints what differs. The exit code is 1 if anything does.
"""

import pathlib
import re
import sys

# The source and the table in it that has the keywords of a variable.
KEYWORDS = {
    "QK_MEM_DEBUG": [("src/config/debug_config.h", "kSwitches"),
                     ("src/config/debug_config.cpp", "keywords()")],
    "QK_MEM_DUMP": [("src/config/dump_config.cpp", "kOuterTable")],
    "QK_MEM_OPTIONS": [("src/config/module_options.cpp", "kTable")],
    "QK_MEM_PROFILE": [("src/config/profile_options.cpp", "kKeywords")],
    "QK_MEM_CHECK": [("src/config/check_options.cpp", "kCheckKeywords")],
}

# The source and the table with what the first column of a part's tables has.
VALUES = {
    "Lists of routines": [("src/core/switches.h", "kRoutineNames")],
    "OPTIONS": [("src/config/dump_config.cpp", "kSections")],
    "SORT": [("src/config/profile_options.cpp", "kSorts")],
    "FORMAT": [("src/config/profile_options.cpp", "kFormats")],
    "REPORT": [("src/support/file_names.cpp", "put_conversion()")],
    "CONTROL": [("src/config/profile_schedule.cpp", "kCommands"),
                ("src/config/profile_options.cpp", "kReportKeywords")],
    "IGNORE": [("src/config/known_leaks_file.cpp", "kLeakKeywords")],
}

# The tables with what each keyword does, alone and with a value.
MEANINGS = "tools/qkmem/program/meanings.h"
MEANING_TABLES = {
    "QK_MEM_DEBUG": "kDebugMeanings",
    "QK_MEM_DUMP": "kDumpMeanings",
    "QK_MEM_OPTIONS": "kModuleMeanings",
    "QK_MEM_PROFILE": "kProfileMeanings",
    "QK_MEM_CHECK": "kCheckMeanings",
}

# Rows that no table of the sources has.
BESIDE = {"IGNORE": {"#"}, "CONTROL": set()}
# Options of the command `report` that the page has as keywords of the variable.
SHOWN_ELSEWHERE = {"PEAK", "TOP", "SORT", "FORMAT", "SKIP"}

# What is told of the constants of src/profile/options.h.
DEFAULTS = {
    "kDefaultTop": "TOP",
    "kDefaultDepth": "STACKS",
    "kMaxDepth": "STACKS",
    "kDefaultHistory": "HISTORY",
    "kDefaultMaxBytes": "MAX",
}

VARIABLE = re.compile(r'(?:getenv|apply_variable)\(\s*"(\w+)"')
ENTRY = re.compile(r'[({]\s*("[^"]+"|k[A-Z]\w*),(?:\s*(?:qk::)?(k(?:No|Optional|Required)Value))?')
DEFAULT = r"\b{} = (?:std::uint64_t.)?(\d+).?(?: << (\d+))?;"
MEANING = re.compile(r'\{"([A-Z_]+)",\s*"([^"]*)",\s*"([^"]*)"')
TEXT = re.compile(r'"([^"]+)"')
OUTPUT = re.compile(r"^```.*?^```", re.MULTILINE | re.DOTALL)
HEADING = re.compile(r"^(##|###) (.+)$", re.MULTILINE)
ROW = re.compile(r"^\| (`.+?) \|", re.MULTILINE)


class Source:
    """What the checks need of one source."""

    def __init__(self, root, name):
        self.text = (root / name).read_text(encoding="utf-8")

    def definition(self, name):
        """What stands between the braces of a table, or of a function if the name ends with ()."""
        head = (rf"\b{name[:-2]}\([^;{{]*\)\s*\{{" if name.endswith("()") else
                rf"\b{name}(?:\[\])? =\s*\{{")
        start = re.search(head, self.text)
        if start is None:
            sys.exit(f"{name} is not in the sources any more")
        depth = 1
        for brace in re.finditer("[{}]", self.text[start.end():]):
            depth += 1 if brace[0] == "{" else -1
            if depth == 0:
                return self.text[start.end() - 1:start.end() + brace.start()]
        sys.exit(f"{name} has no end")

    def constant(self, name):
        return re.search(rf'\b{name}\[\] = "(\w+)"', self.text)[1]

    def entries(self, table):
        """Pairs of a keyword and the kind of its value, None if the table doesn't say."""
        for name, kind in ENTRY.findall(self.definition(table)):
            yield (name.strip('"') if name[0] == '"' else self.constant(name)), kind or None

    def values(self, table):
        body = self.definition(table)
        if table.endswith("()"):
            return {f"%{letter}" for letter in re.findall(r"case '(.)'", body)}
        is_flat = body.count("{") == 1 and "(" not in body
        return set(TEXT.findall(body)) if is_flat else {name for name, _ in self.entries(table)}


def parts_of(page):
    """Maps each variable's name to its keywords' parts: the heading and the text below it."""
    pieces = HEADING.split(OUTPUT.sub("", page))[1:]
    parts = {}
    variable = None
    for level, title, text in zip(pieces[0::3], pieces[1::3], pieces[2::3]):
        if level == "##":
            variable = title
            parts[variable] = []
        else:
            parts[variable].append((title, text))
    return parts


def forms(title):
    """The forms of a keyword in a heading, as in "STACKS, STACKS=depth"."""
    return title.split(", ") if re.match(r"[A-Z_]+(=|,|$)", title) else []


def keyword_of(title):
    return forms(title)[0].split("=")[0] if forms(title) else title


def compare(what, in_sources, in_page):
    for name in sorted(in_sources - in_page):
        yield f"docs/variables.md doesn't have {what} {name}"
    for name in sorted(in_page - in_sources):
        yield f"docs/variables.md has {what} {name}, which there isn't"


def variables_of(root):
    return {name for source in sorted((root / "src").rglob("*.cpp"))
            for name in VARIABLE.findall(source.read_text(encoding="utf-8"))}


def wrong_variables(root, parts):
    named = {name for title in parts for name in title.split(", ") if re.fullmatch("[A-Z_]+", name)}
    yield from compare("the variable", variables_of(root), named)


def kinds_of(root, variable):
    """Maps the keywords of a variable to the kinds of their values."""
    return {name: kind for source, table in KEYWORDS[variable]
            for name, kind in Source(root, source).entries(table) if name.isupper()}


def wrong_keywords(root, parts):
    for variable in KEYWORDS:
        kinds = kinds_of(root, variable)
        titles = {keyword_of(title): title for title, _ in parts.get(variable, []) if forms(title)}
        yield from compare(f"the keyword of {variable}", set(kinds), set(titles))
        for name in sorted(kinds.keys() & titles.keys()):
            has_value = "=" in titles[name]
            if (kinds[name], has_value) in (("kRequiredValue", False), ("kNoValue", True)):
                yield f"docs/variables.md is wrong about the value of {variable}: {titles[name]}"


def wrong_meanings(root, _parts):
    source = Source(root, MEANINGS)
    for variable, table in MEANING_TABLES.items():
        told = {name: (alone, with_value)
                for name, alone, with_value in MEANING.findall(source.definition(table))}
        kinds = kinds_of(root, variable)
        for name in sorted(kinds.keys() ^ told.keys()):
            yield f"{MEANINGS}: {name} of {variable} is missing, or too much"
        for name in sorted(kinds.keys() & told.keys()):
            alone, with_value = map(bool, told[name])
            # The table of the switches doesn't say that they can have lists.
            wanted = {"kNoValue": (True, False), "kRequiredValue": (False, True)}.get(
                kinds[name], (True, True))
            if (alone, with_value) != wanted:
                yield f"{MEANINGS}: {name} of {variable} has other forms"


def rows_of(text):
    """The words in the first columns of the tables."""
    words = set()
    for row in ROW.findall(text):
        words |= {word.split("=")[0] for word in re.findall(r"`([^`]+)`", row)}
    return words


def wrong_values(root, parts):
    for keyword, tables in VALUES.items():
        found = [text for titles in parts.values() for title, text in titles
                 if keyword_of(title) == keyword]
        known = set().union(*(Source(root, source).values(table) for source, table in tables))
        known |= BESIDE.get(keyword, set())
        if keyword in BESIDE:
            known -= SHOWN_ELSEWHERE
        yield from compare(f"the row of {keyword}:", known, rows_of("".join(found)))


def wrong_defaults(root, parts):
    source = Source(root, "src/profile/options.h").text
    for constant, keyword in DEFAULTS.items():
        number, shift = re.search(DEFAULT.format(constant), source).groups()
        shown = f"{number}M" if shift == "20" else f"{int(number):,}"
        text = "".join(text for title, text in parts["QK_MEM_PROFILE"]
                       if keyword_of(title) == keyword)
        if not re.search(rf"(?<![\d,]){shown}(?![\d,]*\d)", text):
            yield f"docs/variables.md doesn't say {shown} of {keyword}"


def main():
    root = pathlib.Path(sys.argv[1])
    parts = parts_of((root / "docs/variables.md").read_text(encoding="utf-8"))
    wrong = [line for check in (wrong_variables, wrong_keywords, wrong_meanings, wrong_values,
                                wrong_defaults)
             for line in check(root, parts)]
    print("\n".join(wrong) if wrong else
          f"{sum(map(len, parts.values()))} parts of docs/variables.md say what the sources do")
    return 1 if wrong else 0


if __name__ == "__main__":
    sys.exit(main())
