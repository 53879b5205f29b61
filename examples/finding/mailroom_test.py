import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main  # noqa: E402


class Mailroom(Example):
    def test_holds_its_furniture_if_nothing_is_wrong(self):
        result = self.run_program(PROFILE="SITES")
        self.assertEqual(result.returncode, 0)
        self.assertIn("qkmem: 3 sites still hold 27.8 KiB in 42 blocks; peak ", result.stderr)

    def test_prints_nothing_of_its_own(self):
        for weakness in ("leaks", "grows", "peaks", "churns"):
            result = self.run_program(weakness)
            self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))

    def test_shows_its_lines_in_the_page(self):
        examples = SOURCES.parent
        quoted = {f"{number}  {line}"
                  for source in (SOURCES / "mailroom.cpp", examples / "growth" / "server.cpp",
                                 examples / "growth" / "sessions_tests.cpp",
                                 examples / "sqlite" / "shop.cpp")
                  for number, line in enumerate(source.read_text().splitlines(), start=1)}
        page = (examples.parent / "docs" / "finding.md").read_text(encoding="utf-8")
        blocks = re.findall(r"```cpp\n((?:(?!```).*\n)*)", page)
        lines = [line for block in blocks for line in block.splitlines()]
        self.assertEqual([line for line in lines if line not in quoted], [])
        self.assertGreater(len(lines), 0)


if __name__ == "__main__":
    main(Mailroom)
