import pathlib
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, place, report_of, rows_of  # noqa: E402


class First(Example):
    def test_prints_the_bytes_on_its_handle(self):
        result = self.run_program()
        self.assertEqual((result.returncode, result.stdout, result.stderr),
                         (0, "Ada and Grace: 18 bytes\n", ""))

    def test_report_at_exit_names_the_lines_that_leaked(self):
        result = self.run_program(DEBUG="LOG=STDERR SUMMARY")
        source = SOURCES / "first.c"
        self.assertEqual(rows_of(report_of(result.stderr)),
                         [("PE", "R", 1, 12, place(source, "qk_mem_realloc")),
                          ("PE", "S", 1, 6, place(source, '"Grace"'))])

    def test_free_of_null_is_warned_about(self):
        result = self.run_program(DEBUG="LOG=STDERR EXCEPTIONS")
        self.assertEqual(result.stderr.splitlines()[-1],
                         "   qk_mem_ifree: WARNING: free of NULL pointer at "
                         + place(SOURCES / "first.c", "NULL);"))


if __name__ == "__main__":
    main(First)
