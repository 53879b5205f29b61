import pathlib
import re
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

    def test_readme_shows_this_program_and_its_output(self):
        readme = (SOURCES.parent.parent / "README.md").read_text(encoding="utf-8")
        program = (SOURCES / "first.c").read_text(encoding="utf-8").splitlines()
        numbered = re.findall(r"^ *(\d+)  (.+;)$", readme, re.MULTILINE)
        self.assertGreater(len(numbered), 1)
        for number, line in numbered:
            self.assertEqual(line, program[int(number) - 1].strip())

        command, shown = re.search(r"\$ export (.*)\n\$ build/first\n([^`]*)```", readme).groups()
        settings = dict(re.findall(r'QK_MEM_(\w+)="([^"]*)"', command))
        result = self.run_program(**settings)
        printed = without_addresses(result.stdout + result.stderr)
        lines = [line for line in without_addresses(shown) if line != LEFT_OUT]
        self.assertEqual([line for line in lines if line not in printed], [])
        self.assertEqual(pointer_rows(lines), pointer_rows(printed))

    def test_readme_shows_the_profile_of_this_program(self):
        readme = (SOURCES.parent.parent / "README.md").read_text(encoding="utf-8")
        setting, shown = re.search(r"\$ QK_MEM_PROFILE=(\w+) build/first\n([^`]*)```",
                                   readme).groups()
        result = self.run_program(PROFILE=setting)
        self.assertEqual(without_times(result.stdout + result.stderr), without_times(shown))


def without_times(profile):
    """The report without when the peak was, and without the memory of the profile itself."""
    return re.sub(r"(?<= at )\S+ s(?= \(event)|(?<=profile took ).*(?= of its own)", "*", profile)


# Stands in the README for lines of the output that it doesn't show.
LEFT_OUT = "..."


def without_addresses(text):
    """The lines without what depends on where memory lies: addresses and numbers of events."""
    return re.sub(r"[0-9a-f]{16}|\d+(?= first\.c:)", "*", text).splitlines()


def pointer_rows(lines):
    """Sorted, as their order depends on the addresses."""
    return sorted(line for line in lines if re.search(r"\* \w .*first\.c:", line))


if __name__ == "__main__":
    main(First)
