import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, place  # noqa: E402

SESSION = place(SOURCES / "sessions.cpp", "qk_mem_malloc(memory, sizeof(Session))")
NAME = place(SOURCES / "sessions.cpp", "qk_mem_strdup(memory")


def rows_of(report):
    """The rows of a report of growth as (bytes, blocks, place)."""
    return re.findall(r"^ +([-+]\S+ \w+) +(\S+) +\S+ +\S+ \w+ +\d+ \w+  (\S+)$", report,
                      re.MULTILINE)


class Server(Example):
    def test_shows_the_name_that_is_never_freed_first(self):
        result = self.run_program(PROFILE="SITES REPORT=/dev/null")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertEqual(rows_of(result.stdout), [("+17.6 KiB", "+1,000", NAME),
                                                  ("+2.3 KiB", "+100", SESSION),
                                                  ("-2.9 KiB", "-1", "server.cpp:23")])

    def test_shows_the_same_growth_with_call_stacks(self):
        result = self.run_program(PROFILE="STACKS REPORT=/dev/null")
        self.assertEqual((result.returncode, result.stderr), (0, ""))
        self.assertIn('qkmem: 2 sites grew by 19.9 KiB in 1,100 blocks between "warm" (event ',
                      result.stdout)

    def test_guard_tells_what_one_customer_leaves(self):
        result = self.run_program("guarded", PROFILE="SITES REPORT=/dev/null")
        self.assertEqual((result.returncode, result.stdout), (0, ""))
        self.assertIn('qkmem: 1 site grew by 18 B in 1 block between "one customer #1" (event ',
                      result.stderr)
        self.assertEqual(rows_of(result.stderr), [("+18 B", "+1", NAME)])

    def test_guard_is_silent_without_the_profile(self):
        result = self.run_program("guarded")
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))


if __name__ == "__main__":
    main(Server)
