"""Reads the public calls of the C headers, with their docstrings.

A docstring has paragraphs, @param and @return, and between them blocks of code: lines that are
indented by two more than the text.
"""

import dataclasses
import re

SECTION = re.compile(r"/\* -+ (.+?) -+ \*/")
PROTOTYPE = re.compile(r"(?P<result>.+?)\b(?P<name>\w+)\((?P<parameters>.*?)\)"
                       r"(?: QK_MEM_(?:BYTES_IN|NOT_READ)\(.*\))?$")
MACRO = re.compile(r"#define (\w+)\(([^)]*)\)\s+(\w+)\(")
TAG = re.compile(r"@(param|return)\b ?")


@dataclasses.dataclass
class Parameter:
    type: str
    name: str


@dataclasses.dataclass
class Text:
    """A part of a docstring: a paragraph, a block of code, or an entry of a list."""
    kind: str  # "paragraph", "code" or "entry"
    text: str
    term: str = ""  # of an entry


@dataclasses.dataclass
class Docstring:
    body: list
    parameters: list  # pairs of names and their texts
    result: list


@dataclasses.dataclass
class Call:
    header: str
    section: str
    result: str
    name: str
    parameters: list
    doc: Docstring
    is_cpp: bool
    macro: str = ""
    macro_parameters: list = dataclasses.field(default_factory=list)


@dataclasses.dataclass
class Constant:
    name: str
    value: str
    meaning: str


@dataclasses.dataclass
class Header:
    name: str
    comment: list  # of the file
    calls: list
    enums: list  # pairs of the lines of a docstring and its constants
    structs: dict  # the definitions of those that C programs see


def unwrapped(comment):
    """The lines of a comment without its frame."""
    text = re.sub(r"^/\*\*?<? ?|\s*\*/$", "", comment.strip())
    return [re.sub(r"^ *\* ?", "", line).rstrip() for line in text.split("\n")]


def indent_of(line):
    return len(line) - len(line.lstrip())


def entry_of(line, column):
    """The term and text of a line that begins an entry, or None."""
    found = re.fullmatch(r"(\S(?:.*\S)?) {2,}(\S.*)", line)
    if found:
        return found[1], found[2]
    if column and line[column - 1:column] == " " and re.fullmatch(r"[A-Z]+=\S+", line[:column - 1]):
        return line[:column - 1], line[column:]
    return None


def texts_of(lines):
    """The paragraphs, entries and blocks of code of lines whose text begins in the first column."""
    result = []
    column = 0
    for line in lines:
        last = result[-1] if result else None
        if not line:
            if last:
                result.append(None)
            continue
        if indent_of(line) >= 2:
            is_entry = last and last.kind == "entry"
            if is_entry:
                last.text += " " + line.strip()
            elif last and last.kind == "code":
                last.text += "\n" + line[2:]
            else:
                result.append(Text("code", line[2:]))
            continue
        entry = entry_of(line, column)
        if entry:
            column = line.index(entry[1], len(entry[0]))
            result.append(Text("entry", entry[1], entry[0]))
        elif last and last.kind == "paragraph":
            last.text += " " + line
        else:
            result.append(Text("paragraph", line))
    return [text for text in result if text]


def dedented(lines):
    """A tag's lines: the first one behind the tag, the others with the indent that they share."""
    indents = [indent_of(line) for line in lines[1:] if line]
    indent = min(indents, default=0)
    return [lines[0]] + [line[indent:] for line in lines[1:]]


def docstring_of(comment):
    pieces = [[]]  # the body, then lines of a tag each
    tags = [None]
    for line in unwrapped(comment):
        tag = TAG.match(line)
        if tag:
            pieces.append([line[tag.end():].strip()])
            tags.append(tag[1])
        elif tags[-1] and not line:
            pieces.append([])
            tags.append(None)
        else:
            pieces[-1].append(line)
    doc = Docstring([], [], [])
    for tag, lines in zip(tags, pieces):
        if tag is None:
            doc.body += texts_of(lines)
        elif tag == "return":
            doc.result += texts_of(dedented(lines))
        else:
            names, _, first = lines[0].partition(" ")
            texts = texts_of(dedented([first.strip()] + lines[1:]))
            doc.parameters.append((names.split(","), texts))
    return doc


def parameters_of(text):
    if text.strip() in ("", "void"):
        return []
    pairs = [re.fullmatch(r"\s*(.+?)(\w+)\s*", piece).groups() for piece in text.split(",")]
    return [Parameter(kind.strip(), name) for kind, name in pairs]


def constants_of(body):
    """The constants of an enum, each with the comment before or behind it."""
    result = []
    comment = ""
    for piece in re.finditer(r"/\*\*(<?)(.*?)\*/|(\w+) = (\w+)", body, re.DOTALL):
        if piece[3]:
            result.append(Constant(piece[3], piece[4], comment))
            comment = ""
            continue
        text = " ".join(unwrapped(piece[0])).strip()
        if piece[1]:
            result[-1].meaning = text
        else:
            comment = text
    return result


def pieces_of(text):
    """Splits a header into comments, lines of the preprocessor, and declarations."""
    piece = re.compile(r"/\*.*?\*/|//[^\n]*|#(?:[^\n]*\\\n)*[^\n]*|extern \"C\" \{|\}|"
                       r"(?:namespace|class|struct|enum)[^;{(]*\{|[^;{}#]+;", re.DOTALL)
    at = 0
    while True:
        at += len(text[at:]) - len(text[at:].lstrip())
        if at == len(text):
            return
        found = piece.match(text, at)
        if not found:
            raise ValueError(f"not understood: {text[at:at + 60]!r}")
        end = found.end()
        if re.match(r"(?:namespace|class|struct|enum)\b.*\{$", found[0], re.DOTALL):
            depth = 1
            while depth:
                depth += {"{": 1, "}": -1}.get(text[end], 0)
                end += 1
            end += len(re.match(r"\s*;?", text[end:])[0])
        yield text[at:end]
        at = end


def read_header(path):
    header = Header(path.name, [], [], [], {})
    section = path.name
    doc = None
    conditions = []
    is_cpp = False  # from an extern "C" on that no C compiler would take
    macros = {}
    for number, piece in enumerate(pieces_of(path.read_text(encoding="utf-8"))):
        if number == 0 and piece.startswith("/**"):
            header.comment = unwrapped(piece)
        elif piece.startswith("/**"):
            doc = piece
        elif piece.startswith(("/*", "//")):
            section = SECTION.fullmatch(piece)[1] if SECTION.fullmatch(piece) else section
        elif piece.startswith("extern \"C\""):
            is_cpp = not any(conditions)
        elif piece.startswith("#"):
            words = piece.split()
            if words[0] in ("#if", "#ifdef", "#ifndef"):
                conditions.append(words[1:] == ["__cplusplus"])
            elif words[0] == "#endif":
                conditions.pop()
            elif MACRO.match(piece.replace("\\\n", " ")):
                macro, names, call = MACRO.match(piece.replace("\\\n", " ")).groups()
                macros[call] = (macro, [name.strip() for name in names.split(",")])
        elif piece.startswith("enum"):
            header.enums.append((unwrapped(doc), constants_of(piece)))
            doc = None
        elif piece.startswith("struct") and "{" in piece:
            header.structs[re.match(r"struct \w+", piece)[0]] = piece
            doc = None
        elif piece.endswith(";") and "(" in piece and "{" not in piece:
            found = PROTOTYPE.fullmatch(" ".join(piece[:-1].split()))
            # A declaration without a docstring shares that of the one before it.
            text = docstring_of(doc) if doc else header.calls[-1].doc
            header.calls.append(Call(
                header.name, section, found["result"].strip(), found["name"],
                parameters_of(found["parameters"]), text, any(conditions) or is_cpp))
            doc = None
        else:
            doc = None
    for call in header.calls:
        call.macro, call.macro_parameters = macros.get(call.name, ("", []))
    return header


def read_headers(root):
    return [read_header(path) for path in sorted((root / "include/qkmem").glob("*.h"))]
