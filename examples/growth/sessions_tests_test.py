import pathlib
import re
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, place  # noqa: E402

NAME = place(SOURCES / "sessions.cpp", "qk_mem_strdup(memory")
TEST = place(SOURCES / "sessions_tests.cpp", "TEST(Sessions, AreForgottenAtSignOut)")


class SessionsTests(Example):
    def test_fails_the_test_that_leaves_memory(self):
        result = self.run_program()
        self.assertEqual((result.returncode, result.stderr), (1, ""))
        self.assertEqual(re.findall(r"^\[  FAILED  \] (\S+) \(", result.stdout, re.MULTILINE),
                         ["Sessions.AreForgottenAtSignOut"])
        self.assertIn("[       OK ] Sessions.CanSignOutAlthoughNobodySignedIn", result.stdout)
        self.assertIn(f"{TEST}: Failure\nFailed\nqkmem: 1 site grew by 18 B in 1 block between ",
                      result.stdout)
        self.assertIn(f"  {NAME}\n", result.stdout)


if __name__ == "__main__":
    main(SessionsTests)
