"""Looks at how processes with leaks end under LEAKS=FAIL.

usage: leaks_test.py PROGRAM

The program is tests/leaks/leaver.cpp. Whatever it does on its way out must be done with the option
as it is without.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

WHY = "qkmem: the process ends with 23, because 1 site still holds memory (LEAKS=FAIL)\n"


class LeakingProcess(unittest.TestCase):
    program = None

    def run_program(self, way, profile="LEAKS=FAIL"):
        environment = {name: value for name, value in os.environ.items()
                       if not name.startswith("QK_MEM_")}
        environment["QK_MEM_PROFILE"] = profile
        with tempfile.TemporaryDirectory() as folder:
            return subprocess.run([self.program, way], cwd=folder, env=environment, text=True,
                                  errors="replace", capture_output=True, timeout=50, check=False)

    def expect(self, way, code, says_why=False):
        """A way out has a code, and is the same one otherwise."""
        result = self.run_program(way)
        self.assertEqual(result.returncode, code)
        self.assertEqual(WHY in result.stderr, says_why, result.stderr)
        usual = self.run_program(way, "SITES")
        self.assertEqual(re.sub(r"status-\d+", "status", result.stdout),
                         re.sub(r"status-\d+", "status", usual.stdout))
        return result

    def test_ends_with_23_after_all_else(self):
        result = self.expect("leak", 23, says_why=True)
        for word in ("after", "before", "static", "destructor", "last-destructor", "library",
                     "library-last"):
            self.assertIn(word, result.stdout.split())
        self.assertTrue(result.stderr.endswith(WHY), result.stderr)

    def test_can_have_its_first_block_in_a_destructor(self):
        self.expect("leak-last", 23, says_why=True)

    def test_ends_with_the_code_that_is_given(self):
        result = self.run_program("leak", "LEAKS=FAIL=7")
        self.assertEqual(result.returncode, 7)
        self.assertIn("the process ends with 7, because", result.stderr)

    def test_can_ask_for_a_code_itself(self):
        self.assertEqual(self.run_program("asks-itself", "").returncode, 9)
        self.assertEqual(self.run_program("asks-itself").returncode, 9)

    def test_ends_with_0_without_the_option_or_without_leaks(self):
        self.assertEqual(self.run_program("leak", "SITES").returncode, 0)
        self.expect("clean", 0)
        self.expect("autofree", 0)

    def test_keeps_a_code_of_its_own(self):
        self.expect("3", 3)
        self.expect("exits-again", 7)

    def test_changes_statuses_whose_code_is_0(self):
        self.expect("256", 23, says_why=True)

    def test_keeps_its_code_if_it_has_no_usual_end(self):
        self.expect("_exit", 0)
        self.expect("quick_exit", 0)
        self.expect("signal", -15)

    def test_has_children_with_codes_of_their_own(self):
        result = self.run_program("forks")
        for child in ("exit 0 ", "_exit 0 ", "leaking 23 "):
            self.assertIn(child, result.stdout)
        self.assertEqual(result.returncode, 23)
        self.assertRegex(result.stderr, r"qkmem: process \d+: the process ends with 23, because ")

    def test_has_no_code_for_a_child_of_its_end_without_a_report(self):
        result = self.run_program("forks-late")
        has_report = re.search(r"qkmem: process \d+: 1 site", result.stderr) is not None
        self.assertIn("late 23 " if has_report else "late 0 ", result.stdout)
        self.assertEqual(result.returncode, 23)

    def test_ends_with_23_whatever_the_report_is(self):
        for form in ("JSON", "PPROF", "OPENMETRICS"):
            result = self.run_program("leak", f"LEAKS=FAIL FORMAT={form} REPORT=report")
            self.assertEqual((result.returncode, result.stderr), (23, WHY))
            self.assertEqual(self.run_program("leak", f"LEAKS=FAIL FORMAT={form}").returncode, 23)
        for report in ("m", "m.%i"):
            options = f"LEAKS=FAIL FORMAT=OPENMETRICS EVERY=1000 REPORT={report}"
            self.assertEqual(self.run_program("leak", options).returncode, 23)

    def test_says_why_where_the_report_is(self):
        result = self.run_program("leak", "LEAKS=FAIL REPORT=STDOUT")
        self.assertIn(WHY, result.stdout)
        self.assertEqual(result.stderr, "")
        for report in ("LOG", "report.txt"):
            self.assertEqual(self.run_program("leak", f"LEAKS=FAIL REPORT={report}").stderr, WHY)

    def test_does_not_say_why_between_figures_for_programs(self):
        self.assertNotIn(WHY, self.run_program("leak", "LEAKS=FAIL FORMAT=JSON").stderr)


if __name__ == "__main__":
    LeakingProcess.program = sys.argv.pop(1)
    unittest.main()
