import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, without_amounts  # noqa: E402

OUTPUT = "Ada: 99a5...\nGrace: f246...\nBarbara: d019...\n"


class Openssl(Example):
    def test_shows_the_contexts_that_are_forgotten_where_openssl_makes_them(self):
        result = self.run_program(PROFILE="SITES TOP=0")
        self.assertEqual((result.returncode, result.stdout), (0, OUTPUT))
        rows = [re.sub(r"(?<=\.c:)\d+", "*", row) for row in without_amounts(result.stderr)]
        self.assertIn("* 3 * 6 3 SS digest.c:* [fingerprints]", rows, result.stderr)
        self.assertEqual([row for row in rows if " SS " in row and "[fingerprints]" not in row], [])

    def test_holds_nothing_once_contexts_are_freed(self):
        result = self.expect_nothing_held("fixed")
        self.assertEqual((result.returncode, result.stdout), (0, OUTPUT))

    def test_frees_only_what_the_handle_knows(self):
        self.expect_no_warning("fixed")


if __name__ == "__main__":
    main(Openssl)
