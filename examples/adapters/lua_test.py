import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, without_amounts  # noqa: E402


class Lua(Example):
    def test_shows_the_orders_that_are_kept_as_tables_and_strings(self):
        result = self.run_program(PROFILE="SITES REPORT=/dev/null")
        lines = result.stdout.splitlines()
        self.assertEqual((result.returncode, lines[0]), (0, "1801500"))
        rows = [re.sub(r":\d+$", "", row) for row in without_amounts(result.stdout)]
        self.assertIn("* +1,000 1,000 * 3 LU lua.h(table)", rows, result.stdout)
        self.assertIn("* +1,000 2,000 * 3 LU lua.h(string)", rows, result.stdout)

    def test_does_not_grow_if_it_keeps_no_orders(self):
        result = self.run_program("fixed", PROFILE="SITES REPORT=/dev/null")
        self.assertRegex(result.stdout, r'^1801500\nqkmem: nothing grew between "warm" ')

    def test_holds_nothing_once_the_state_is_closed(self):
        self.expect_nothing_held()

    def test_frees_only_what_the_handle_knows(self):
        self.expect_no_warning()


if __name__ == "__main__":
    main(Lua)
