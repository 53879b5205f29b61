#!/usr/bin/env python3
"""Checks that Python reads the JSON writer's output as what was written.

usage: check_json.py OUTPUTS
"""

import decimal
import json
import random
import sys

from viewers import expect_equal, run

TEXTS = [
    b"", b"\0", bytes(range(256)), b"\"\\/\b\f\n\r\t\x7f", b"</script><!--", b"\\u0041",
    "grün € 😀 \u2028\u2029 \ufeff \uffff".encode(), b"\xed\xa0\x80\xed\xb0\x80",
    b"\xf4\x90\x80\x80", b"\xc0\x80", b"\xe2\x82", b"\xf0\x9f\x98", b"a\xffz" * 100000,
]
# Bytes at the limits of UTF-8, so that random sequences of them are often nearly valid.
LIMITS = (b"\x00\x1f\x20\"\\\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc1\xc2\xdf\xe0\xe1\xec\xed\xee\xef"
          b"\xf0\xf1\xf3\xf4\xf5\xff")
INTEGERS = [0, 1, 2**53 + 1, 2**63 - 1, 2**63, 2**64 - 1]


def random_texts(count):
    choice = random.Random(20260711)
    for _ in range(count):
        yield bytes(choice.choices(LIMITS, k=choice.randrange(12)))


def cases():
    """Pairs of a line for the writer, and the value that Python reads."""
    for text in TEXTS + list(random_texts(20000)):
        yield f"text {text.hex()}", text.decode("utf-8", "replace")
    for number in INTEGERS:
        yield f"number {number}", number
    for number in (-2**63, -1, 0, 2**63 - 1):
        yield f"signed {number}", number
        for digits in (0, 1, 9, 18, 19):
            written = decimal.Decimal(number).scaleb(-digits)
            yield f"decimal {number} {digits}", written if digits else number


def main():
    lines, expected = zip(*cases())
    written = run(sys.argv[1], "json", given="\n".join(lines).encode())
    values = json.loads(written.decode("utf-8"), parse_float=decimal.Decimal)
    expect_equal("number of values", len(values), len(expected))
    for line, value, wanted in zip(lines, values, expected):
        expect_equal(line[:200], (type(value), value), (type(wanted), wanted))
    print(f"{len(values)} values are read as they were written")


if __name__ == "__main__":
    main()
