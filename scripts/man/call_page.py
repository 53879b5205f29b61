"""Writes the page of a public call from its docstring."""

import dataclasses
import errno
import os
import re

import roff

CODE = re.compile(r"(?<![\w.,])(5\d{3}|1[01]\d{3})(?!\w|,\d)")
RANGE = re.compile(r"(1\d{4}) to (1\d{4})")
CALL = re.compile(r"\b((?:qk|QK)_\w+)\(\)")
CONVENTION = re.compile(r"(?<=see )\((\d+)\)(?! in )")

# What these mean is the same in all calls. The header says so in its conventions.
USUAL = {
    ("hid",): "The number of a handle, see (3).",
    ("file", "line"): "The caller's location in the source, see (2).",
}


class Codes:
    """What the error codes mean, from the headers."""

    def __init__(self, headers):
        self._known = {}
        for header in headers:
            for doc, constants in header.enums:
                for constant in constants:
                    if constant.name.startswith("QK_MEM_ERROR_"):
                        self._known[int(constant.value)] = (constant.name, constant.meaning)
                for code, meaning in re.findall(r"(100\d\d) ([^,.]+)", " ".join(doc)):
                    self._known[int(code)] = ("", meaning)

    def __iter__(self):
        return iter(sorted(self._known))

    def known(self, code):
        return code in self._known or code - 5000 in errno.errorcode

    def term(self, code):
        name = self._known.get(code, ("",))[0] or errno.errorcode.get(code - 5000, "")
        return roff.bold(str(code)) + (f" ({name})" if name else "")

    def meaning(self, code):
        if code in self._known:
            return self._known[code][1]
        return os.strerror(code - 5000)


def sentence(text):
    return text[:1].upper() + text[1:] + ("" if text.endswith((".", ":")) else ".")


class CallPage:
    """A page for calls that share one docstring."""

    def __init__(self, manual, calls):
        self._manual = manual
        self._calls = calls
        self._doc = calls[0].doc
        self._page = roff.Page(self.name(), 3, manual.version, manual.date)

    def name(self):
        return self._calls[0].macro or self._calls[0].name

    def all_names(self):
        """The page's own name first."""
        names = [name for call in self._calls for name in (call.macro, call.name) if name]
        return sorted(names, key=lambda name: name != self.name())

    def marked(self, text):
        """Text with the calls and parameters in it marked, and references told apart from text."""
        text = CONVENTION.sub(r"(\1) in qkmem(7)", text)
        own = {parameter.name for call in self._calls for parameter in call.parameters}
        pieces = re.split(r"(`[^`]+`|\b(?:qk|QK)_\w+\(\)|\bqkmem\(7\))", text)
        result = ""
        for piece in pieces:
            if piece.startswith("`"):
                word = piece[1:-1]
                result += roff.italic(word) if word in own else roff.bold(word)
            elif CALL.fullmatch(piece) or piece == "qkmem(7)":
                name, rest = piece.split("(")
                result += f"{roff.bold(name)}({rest}"
            else:
                result += roff.escaped(piece)
        return result

    def write(self):
        page = self._page
        page.section("Name")
        page.text(f"{', '.join(self.all_names())} \\- {self._short()}")
        self._write_synopsis()
        page.section("Description")
        self._write_texts(self._description())
        self._write_parameters()
        self._write_result()
        self._write_constants()
        self._write_errors()
        self._write_examples()
        page.section("Notes")
        page.text(self.marked("What holds for all calls, such as threads, start-up, errors and the "
                              "log, is under CONVENTIONS in qkmem(7)."))
        page.section("See also")
        page.text(", ".join([*(f"{roff.bold(name)}(3)" for name in self._related()),
                             f"{roff.bold('qkmem')}(7)"]))
        return page.finished()

    def _short(self):
        """The first sentence, as the one line that lists of pages show."""
        first = re.match(r"(.*?[.:])(?: |$)", self._doc.body[0].text + " ")[1].rstrip(".:")
        return roff.escaped(first[:1].lower() + first[1:])

    def _description(self):
        """What stands before and behind the tags, without the examples that it leads to."""
        return [dataclasses.replace(text, text=re.sub(":$", ".", text.text))
                for text in self._doc.body if text.kind != "code"]

    def _write_synopsis(self):
        page = self._page
        page.section("Synopsis")
        page.request(".nf")
        page.request(f'.B "#include <qkmem/{self._calls[0].header}>"')
        if self.is_cpp():
            page.request("/* in C++ only */")
        for name, text in self._manual.structs.items():
            if any(name in kind for call in self._calls
                   for kind in [call.result, *(p.type for p in call.parameters)]):
                page.request(".PP")
                page.request(roff.verbatim(text.replace("/**<", "/*")))
        for call in self._calls:
            if call.macro:
                passed = [p for name in call.macro_parameters for p in call.parameters
                          if p.name == name]
                page.request(".PP")
                self._write_prototype(call.result, call.macro, passed)
            page.request(".PP")
            self._write_prototype(call.result, call.name, call.parameters)
        page.request(".fi")

    def _write_prototype(self, result, name, parameters):
        head = f"{result} {name}("
        lines = [[]]
        width = len(head)
        for number, parameter in enumerate(parameters):
            last = number + 1 == len(parameters)
            shown = len(f"{parameter.type} {parameter.name}, ")
            if lines[-1] and width + shown > 72:
                lines.append([])
                width = len(head)
            width += shown
            lines[-1].append((f"{parameter.type} ", parameter.name, ");" if last else ", "))
        if not parameters:
            self._page.request(f'.B "{head}void);"')
            return
        for number, line in enumerate(lines):
            text = head if number == 0 else " " * len(head)
            words = []
            for kind, parameter, behind in line:
                words += [f'"{text}{kind}"', parameter]
                text = behind
            words.append(f'"{text.rstrip()}"')
            self._page.request(f".BI {' '.join(words)}")

    def _write_texts(self, texts, continues=False):
        """Paragraphs and entries. The first paragraph can continue what is there."""
        for number, text in enumerate(texts):
            if text.kind == "entry":
                self._page.entry(roff.bold(text.term), self.marked(text.text))
            elif text.kind == "code":
                self._page.code(text.text)
            elif number == 0 and continues:
                self._page.text(self.marked(text.text))
            else:
                self._page.paragraph(self.marked(text.text))

    def parameters(self):
        """Pairs of names and texts of all parameters, in the order of the calls."""
        told = {name: (names, texts) for names, texts in self._doc.parameters for name in names}
        result = []
        for call in self._calls:
            for parameter in call.parameters:
                if any(parameter.name in names for names, _ in result):
                    continue
                usual = [names for names in USUAL if parameter.name in names]
                if parameter.name in told:
                    result.append(told[parameter.name])
                elif usual:
                    result.append((list(usual[0]), USUAL[usual[0]]))
                else:
                    raise ValueError(f"{call.name}: {parameter.name} has no @param")
        return result

    def _write_parameters(self):
        if not any(call.parameters for call in self._calls):
            return
        self._page.section("Parameters")
        for names, texts in self.parameters():
            term = ", ".join(roff.italic(name) for name in names)
            if isinstance(texts, str):
                self._page.entry(term, self.marked(texts))
                continue
            begins_with_text = texts[0].kind == "paragraph"
            self._page.entry(term, self.marked(sentence(texts[0].text)) if begins_with_text else "")
            rest = texts[1:] if begins_with_text else texts
            if rest:
                with self._page.indented():
                    self._write_texts(rest)

    def _write_result(self):
        if all(call.result == "void" for call in self._calls):
            return
        self._page.section("Return value")
        first = self._doc.body[0].text
        if self._doc.result:
            texts = [dataclasses.replace(self._doc.result[0],
                                         text=sentence(self._doc.result[0].text)),
                     *self._doc.result[1:]]
            self._write_texts(texts, continues=True)
        elif first.startswith("Returns "):
            self._page.text(self.marked(sentence(first[len("Returns "):])))
        else:
            raise ValueError(f"{self._calls[0].name} has no @return")

    def _all_text(self):
        texts = [*self._doc.body, *self._doc.result,
                 *(text for _, texts in self._doc.parameters for text in texts)]
        return "\n".join(f"{text.term} {text.text}" for text in texts)

    def _write_constants(self):
        """Those of the enums that the docstring names, one by one or by what they begin with."""
        text = self._all_text()
        for constants in self._manual.enums:
            prefix = os.path.commonprefix([constant.name for constant in constants])
            is_group = prefix.count("_") > 2 and not prefix.startswith("QK_MEM_ERROR_")
            named = {constant.name for constant in constants} & set(re.findall(r"\w+", text))
            if not (is_group and re.search(rf"\b{prefix}", text)) and len(named) < 2:
                continue
            self._page.section("Constants")
            for constant in constants:
                self._page.entry(roff.bold(constant.name), self.marked(sentence(
                    constant.meaning)) if constant.meaning else "")

    def codes(self):
        text = RANGE.sub(lambda ends: " ".join(map(str, range(int(ends[1]), int(ends[2]) + 1))),
                         self._all_text())
        return sorted({int(code) for code in CODE.findall(text) if int(code) != 5000})

    def _write_errors(self):
        codes = self.codes()
        if not codes:
            return
        self._page.section("Errors")
        for code in codes:
            if not self._manual.codes.known(code):
                raise ValueError(f"{self._calls[0].name}: no meaning of the code {code} is known")
            self._page.entry(self._manual.codes.term(code),
                             self.marked(sentence(self._manual.codes.meaning(code))))

    def examples(self):
        return [text.text for text in self._doc.body if text.kind == "code"]

    def _write_examples(self):
        if not self.examples():
            return
        self._page.section("Examples")
        for text in self.examples():
            self._page.code(text)

    def _related(self):
        """The calls of the same section of the header, and those that the docstring names."""
        named = set(CALL.findall(self._all_text()))
        return sorted({page.name() for page in self._manual.call_pages
                       if page is not self and (page.section() == self.section() or
                                                named & set(page.all_names()))})

    def section(self):
        return self._calls[0].header, self._calls[0].section

    def is_cpp(self):
        return all(call.is_cpp for call in self._calls)
