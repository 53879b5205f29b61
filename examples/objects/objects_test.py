import pathlib
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, place, report_of, rows_of  # noqa: E402

PRINTED = """\
an object and an array: 32 bytes
  Vega sets
destroyed: 0 bytes
in a scope: 32 bytes
  Vega sets
behind it: 0 bytes
the handle ends with its objects:
  Deneb sets
  unnamed sets
  unnamed sets
  unnamed sets
a std::pmr::map: 109 bytes
a std::vector beside it: 509 bytes
an arena after a thousand nights: 4128 bytes
  a star of another sky sets
"""


def objects_place(text):
    return place(SOURCES / "objects.cpp", text)


class Objects(Example):
    def test_prints_what_its_handles_hold(self):
        result = self.run_program()
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        # Whether the object or the array ends first with their handle depends on their addresses.
        self.assertEqual(sorted(result.stdout.splitlines()), sorted(PRINTED.splitlines()))

    def test_report_at_exit_names_what_is_forgotten(self):
        result = self.run_program(DEBUG="LOG=STDERR SUMMARY")
        self.assertEqual(rows_of(report_of(result.stderr)),
                         [("SK", "J", 1, 40, objects_place("(sky, 5)")),
                          ("SK", "M", 1, 4, objects_place("auto* distant")),
                          ("SK", "W", 1, 8, objects_place('"Altair");')),
                          ("SK", "W", 1, 48, objects_place("auto* distant"))])

    def test_destruction_of_a_stranger_is_warned_about(self):
        result = self.run_program(DEBUG="LOG=STDERR EXCEPTIONS")
        warnings = [line for line in result.stderr.splitlines() if "WARNING" in line]
        stranger = objects_place("new Star(")
        self.assertEqual(len(warnings), 2)
        for warning in warnings:
            self.assertRegex(warning, r"^   qk_mem_ideregister: WARNING:   3 \[[0-9a-f]{16}\] "
                                      rf"ptr not found at {stranger}$")


if __name__ == "__main__":
    main(Objects)
