import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, adapter_place, main, report_of, rows_of  # noqa: E402

ROW = re.compile(r"^ .*  (sqlite\.h:\d+)(?: \[(.*)\])?$", re.MULTILINE)


class Shop(Example):
    def test_leads_by_its_label_to_the_step_that_forgets(self):
        report = self.run_program(PROFILE="SITES").stderr
        rows = ROW.findall(report)
        self.assertEqual(rows[0], (adapter_place("sqlite", "malloc"),
                                   "answering customers > looking up a price"), report)
        self.assertEqual(len([row for row in rows if "looking up a price" in row[1]]), 1, report)

    def test_holds_what_sqlite_says_and_a_header_for_each_block(self):
        result = self.run_program(DEBUG="SUMMARY LOG=STDERR")
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        size, blocks = map(int, re.search("^shop: the database is still in use, with "
                                          r"(\d+) bytes in (\d+) blocks$", result.stderr,
                                          re.MULTILINE).groups())
        rows = [row for row in rows_of(report_of(result.stderr)) if "sqlite.h:" in row[4]]
        self.assertEqual(sum(count for _, _, count, _, _ in rows), blocks)
        self.assertEqual(sum(total for _, _, _, total, _ in rows), size + 8 * blocks)

    def test_holds_nothing_once_statements_are_finalized(self):
        result = self.expect_nothing_held("fixed")
        self.assertEqual(result.returncode, 0)

    def test_frees_only_what_the_handle_knows(self):
        self.expect_no_warning("fixed")


if __name__ == "__main__":
    main(Shop)
