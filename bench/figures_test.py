#!/usr/bin/env python3
"""Tests of figures.py and measure, with a program of known figures in place of the one that measures.

usage: figures_test.py
"""

import json
import pathlib
import subprocess
import sys
import tempfile
import unittest

import figures
from figures import Figure, Goal, Row

MEASURE = pathlib.Path(__file__).parent / "measure"

# The program's answers, by its first argument.
ANSWERS = {
    "": "first\tThe first\t1\t2.2\t1.05\ttalloc\tor\n"
        "second\tThe second\t16\t16\t1\ttalloc\tand\n"
        "third\tThe third\t1\t0\t0\t\tor\n",
    "--build": "g++ 12\nglibc 2.36\n",
    "--peers": "talloc\tlibtalloc-dev\t2.4\nAPR pool\tlibapr1-dev\t\n",
    "--many": "malloc\t1\t10\t20\nmalloc\t2\t11\t21\nmalloc\t3\t12\t30\n",
}

# What benchmarks give out in nine processes: name, nanoseconds and ratios of each contestant.
STANDINGS = {
    "first": [("malloc", [10.26, 9, 12, 10, 13, 1, 99, 10.2, 11], [1] * 9),
              ("qkmem", [22] * 9, [2.9, 2.25, 2.3, 1.7, 2.2, 1, 99, 2.21, 2.29]),
              ("talloc", [21] * 9, [2.3, 2.15, 2.2, 2.1, 1.9, 1, 99, 2.12, 2.18])],
    "second": [("malloc", [6.4] * 9, [1] * 9),
               ("qkmem", [80] * 9, [12.5, 14, 15, 10, 9, 1, 99, 11, 13]),
               ("talloc", [64] * 9, [11.9, 12.4, 13, 13, 11, 1, 99, 12, 12.5])],
    "third": [("malloc", [100] * 9, [1] * 9),
              ("qkmem", [30] * 9, [0.3, 0.29, 0.31, 0.31, 0.29, 0.1, 0.9, 0.3, 0.3])],
}

# Answers of several processes are given out one after the other.
FAKE = """\
#!/usr/bin/env python3
import json, pathlib, sys
answers = json.loads({answers!r})
key = sys.argv[1] if len(sys.argv) > 1 else ""
key = key.split("/")[0].replace("--benchmark_filter=^", "")
count = pathlib.Path(__file__ + ".count." + key)
number = int(count.read_text()) if count.exists() else 0
count.write_text(str(number + 1))
answer = answers[key]
print(answer[number] if isinstance(answer, list) else answer, end="")
"""


def benchmarks(workload, standings):
    """The answer of each process."""
    return [json.dumps({"benchmarks": [
        {"run_name": f"{workload}/{name}/iterations:1", "real_time": times[i], "ratio": ratios[i]}
        for name, times, ratios in standings]}) for i in range(9)]


class MeasuredPages(unittest.TestCase):
    """The program measure, from the figures to the pages."""

    def setUp(self):
        # pylint: disable-next=consider-using-with
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = pathlib.Path(folder.name)
        self.write_program("ratios", ANSWERS)
        answers = {name: benchmarks(name, standings) for name, standings in STANDINGS.items()}
        answers["left_by_100000_handles"] = '{"benchmarks": [{"MB": 2.13}]}'
        self.write_program("ratios_bench", answers)

    def write_program(self, name, answers):
        program = self.folder / name
        program.write_text(FAKE.format(answers=json.dumps(answers)))
        program.chmod(0o755)

    def measure(self, *options):
        return subprocess.run([sys.executable, MEASURE, self.folder / "ratios", *options],
                              capture_output=True, text=True, check=False)

    def test_page_has_all_figures_and_marks_the_uncertain_ones(self):
        page = self.folder / "page.md"
        self.assertEqual(self.measure("--page", page).returncode, 0)
        text = page.read_text()
        self.assertIn("""
| Workload | compared with | qkmem | others |
| --- | --- | --- | --- |
| The first | malloc 10.3 ns | **2.25** (2.20..2.30) | talloc 2.15 (2.10..2.20) |
| The second | malloc 6.4 ns | **12.50** (10.00..14.00, uncertain) | talloc 12.40 (11.90..13.00) |
| The third | malloc 100.0 ns | **0.30** (0.29..0.31) | - |
""", text)
        self.assertIn("""
|  |  | 250,000 | 500,000 | 1,000,000 | last to first |
| --- | --- | --- | --- | --- | --- |
| malloc | allocation | 10 | 11 | 12 | 1.20 |
| malloc | deletion | 20 | 21 | 30 | 1.50 |
""", text)
        self.assertIn(" leave\n2.1 MB ", text)
        self.assertIn("""
- talloc 2.4
- left out, as it is not installed: APR pool (libapr1-dev)
""", text)

    def test_goals_are_replaced_between_their_comments(self):
        page = self.folder / "goals.md"
        page.write_text("Before.\n\n<!-- goals: here -->\n\n| old |\n\n<!-- end -->\n\nAfter.\n")
        self.assertEqual(self.measure("--goals", page).returncode, 0)
        self.assertEqual(page.read_text(), """\
Before.

<!-- goals: here -->

| Workload | qkmem | goal | reached |
| --- | --- | --- | --- |
| The first | 2.25 (talloc 2.15) | 2.20 or 1.05 times talloc | yes |
| The second | 12.50 (talloc 12.40) | 16.00 and below talloc | no, uncertain |

<!-- end -->

After.
""")

    def test_filter_chooses_by_the_name_and_refuses_what_no_name_has(self):
        page = self.folder / "page.md"
        self.assertEqual(self.measure("--filter", "ir", "--page", page).returncode, 0)
        self.assertIn("| The third |", page.read_text())
        self.assertNotIn("| The second |", page.read_text())
        self.assertEqual(self.measure("--filter", "fourth").stderr,
                         "measure: no workload has fourth in its name\n")


class Goals(unittest.TestCase):
    """Which ratios reach a goal."""

    def test_ratio_is_reached_up_to_itself(self):
        goal = Goal("2.5", "0", "", "or")
        self.assertEqual(str(goal), "2.50")
        self.assertIs(goal.reached(2.5, {}), True)
        self.assertIs(goal.reached(2.51, {}), False)

    def test_multiple_is_of_the_peer_in_the_same_run(self):
        goal = Goal("0", "1.08", "empty call", "or")
        self.assertEqual(str(goal), "1.08 times empty call")
        self.assertIs(goal.reached(1.08, {"empty call": 1.0}), True)
        self.assertIs(goal.reached(1.08, {"empty call": 0.9}), False)

    def test_either_is_enough_with_or(self):
        goal = Goal("2.2", "1.05", "talloc", "or")
        self.assertIs(goal.reached(2.1, {"talloc": 1.0}), True)
        self.assertIs(goal.reached(3.0, {"talloc": 2.9}), True)
        self.assertIs(goal.reached(3.0, {"talloc": 2.0}), False)

    def test_both_are_needed_with_and(self):
        goal = Goal("16", "1", "locked talloc", "and")
        self.assertEqual(str(goal), "16.00 and below locked talloc")
        self.assertIs(goal.reached(15.0, {"locked talloc": 15.1}), True)
        self.assertIs(goal.reached(15.0, {"locked talloc": 15.0}), False)
        self.assertIs(goal.reached(16.1, {"locked talloc": 20.0}), False)

    def test_ratio_can_be_above_that_of_a_peer(self):
        goal = Goal("1.3", "1", "unprofiled", "above")
        self.assertEqual(str(goal), "1.30 above unprofiled")
        self.assertIs(goal.reached(3.5, {"unprofiled": 2.25}), True)
        self.assertIs(goal.reached(3.6, {"unprofiled": 2.25}), False)
        self.assertIs(goal.reached(3.5, {}), None)

    def test_missing_peer_is_said_where_it_decides(self):
        both = Goal("16", "1", "locked talloc", "and")
        either = Goal("2.2", "1.05", "talloc", "or")
        self.assertIs(both.reached(15.0, {}), None)
        self.assertIs(both.reached(17.0, {}), False)
        self.assertIs(either.reached(2.2, {}), True)
        self.assertIs(either.reached(2.3, {}), None)
        row = Row("pair", "Pairs", either, "malloc 10.0 ns", Figure("qkmem", 2.3, 2.3, 2.3), [])
        self.assertEqual(row.goal_columns(),
                         ["Pairs", "2.30", "2.20 or 1.05 times talloc", "talloc is missing"])

    def test_row_without_a_goal_is_in_no_table_of_goals(self):
        row = Row("a", "A", Goal("0", "0", "", "or"), "malloc 1.0 ns", Figure("qkmem", 1, 1, 1), [])
        self.assertEqual(figures.goal_table([row]), figures.table(figures.GOAL_COLUMNS, []))


class Marks(unittest.TestCase):
    """Figures whose ranges are wide."""

    def test_a_tenth_of_the_median_is_certain_and_more_is_not(self):
        self.assertFalse(Figure("qkmem", 4.0, 3.875, 4.25).is_uncertain())
        self.assertTrue(Figure("qkmem", 4.0, 3.75, 4.25).is_uncertain())
        self.assertEqual(Figure("qkmem", 4.0, 3.875, 4.25).text(), "4.00 (3.88..4.25)")
        self.assertEqual(Figure("qkmem", 4.0, 3.75, 4.25).text(strong=True),
                         "**4.00** (3.75..4.25, uncertain)")


class History(unittest.TestCase):
    """Lines in CSV, one for each row and run."""

    RUN = ["2026-01-31", "0123456789ab", "AMD EPYC, second", 2]
    ROWS = [Row("pair", "Pairs", Goal("2", "0", "", "or"), "malloc 10.0 ns",
                Figure("qkmem", 2.5504, 2.5, 2.6), [Figure("talloc", 1.95, 1.9, 2.0),
                                                    Figure("hash table", 5.11, 5.0, 5.2)]),
            Row("two", "Two", Goal("0", "0", "", "or"), "malloc 6.0 ns",
                Figure("qkmem", 83.3, 63.3, 125.5), [])]
    LINES = ('2026-01-31,0123456789ab,"AMD EPYC, second",2,pair,2.550,2.500,2.600,no,'
             "talloc 1.950; hash table 5.110\n"
             '2026-01-31,0123456789ab,"AMD EPYC, second",2,two,83.300,63.300,125.500,yes,\n')

    def test_each_row_is_a_line(self):
        self.assertEqual(figures.history_lines(self.ROWS, self.RUN), self.LINES)

    def test_columns_are_named_once_and_earlier_lines_stay(self):
        head = "date,parent,processor,cores,row,ratio,low,high,uncertain,others\n"
        with tempfile.TemporaryDirectory() as folder:
            path = pathlib.Path(folder) / "history.csv"
            figures.append_history(path, self.LINES)
            self.assertEqual(path.read_text(), head + self.LINES)
            figures.append_history(path, self.LINES)
            self.assertEqual(path.read_text(), head + self.LINES + self.LINES)


if __name__ == "__main__":
    unittest.main()
