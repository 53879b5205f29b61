import collections
import csv
import pathlib
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, main, place, report_of, rows_of  # noqa: E402

CATS = "The cat and the dog.\nThe cat!\n"
MICE = "a mouse,\na cat, a Cat\n"

TRACED_ROUTINES = ("qk_mem_imalloc", "qk_mem_icalloc", "qk_mem_irealloc", "qk_mem_istrdup",
                   "qk_mem_ifree")
TRACED_TYPES = {"M", "C", "R", "S", "F", "c", "s"}


class WordIndex(Example):
    def setUp(self):
        super().setUp()
        (self.folder / "texts").mkdir()
        self.write("texts/cats", CATS)
        self.write("texts/copy", CATS)
        self.write("texts/mice", MICE)

    def forgotten(self):
        """What --leak forgets of these texts."""
        top = place(SOURCES / "results.cpp", "qk_mem_strdup(hid, ranking")
        blocks = place(SOURCES / "pools.cpp", '"IX"')
        buffer = place(SOURCES / "files.cpp", "qk_mem_malloc")
        return sorted([("BU", "M", 1, 4096, buffer),
                       ("IX", "B", 1, 262176, blocks),  # cleared, and kept by its handle
                       ("RE", "S", 1, 4, top), ("RE", "S", 1, 4, top)])  # cat, dog

    def test_counts_words_and_ranks_them(self):
        result = self.run_program("--top", "2", "texts")
        self.assertEqual(result.stdout,
                         "2 files and 1 more that are copies: 13 words, 6 different ones\n"
                         "most frequent:\n"
                         "      4  cat\n"
                         "      1  dog\n")
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_lookup_finds_each_line_once(self):
        result = self.run_program("--top", "0", "--lookup", "CAT", "texts")
        self.assertEqual(result.stdout.splitlines()[1:],
                         ["CAT: 3 lines", "  texts/cats:1", "  texts/cats:2", "  texts/mice:2"])

    def test_default_is_the_licence_texts(self):
        result = self.run_program("--top", "1")
        self.assertEqual(result.returncode, 0)
        self.assertRegex(result.stdout, r"^\d+ files and \d+ more that are copies: \d+ words, ")

    def test_unreadable_file_is_named_and_the_others_are_indexed(self):
        result = self.run_program("--top", "0", "absent", "texts/mice")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stderr, "word_index: absent: No such file or directory\n")
        self.assertTrue(result.stdout.startswith("1 files"))

    def test_unknown_option_is_refused(self):
        result = self.run_program("--lake")
        self.assertEqual((result.returncode, result.stdout), (2, ""))

    def test_behaves_the_same_with_and_without_the_library_watching(self):
        plain = self.run_program("--leak", "texts")
        watched = self.run_program("--leak", "texts", DEBUG="DEBUG SUMMARY LOG=log", OPTIONS="DB")
        self.assertEqual((plain.returncode, plain.stdout, plain.stderr),
                         (watched.returncode, watched.stdout, watched.stderr))

    def test_without_leak_nothing_is_left_and_nothing_warned_about(self):
        result = self.run_program("texts", DEBUG="LOG=STDERR EXCEPTIONS SUMMARY")
        self.assertEqual(rows_of(report_of(result.stderr)), [])
        self.assertNotIn("WARNING", result.stderr)
        self.assertNotIn("ERROR", result.stderr)

    def test_report_at_exit_shows_exactly_what_was_forgotten(self):
        for debug in ("LOG=STDERR SUMMARY", "LOG=STDERR DEBUG SUMMARY"):
            result = self.run_program("--leak", "--top", "2", "texts", DEBUG=debug,
                                      OPTIONS="DB HEAPSIZE")
            self.assertEqual(result.returncode, 0)
            self.assertEqual(rows_of(report_of(result.stderr)), self.forgotten())

    def test_runs_fill_the_same_blocks_again(self):
        once, thrice = (
            self.run_program("--leak", "--runs", runs, "texts", DEBUG="LOG=STDERR SUMMARY")
            for runs in ("1", "3"))
        blocks = [[row for row in rows_of(report_of(result.stderr)) if row[1] == "B"]
                  for result in (once, thrice)]
        self.assertEqual(len(blocks[0]), 1)
        self.assertEqual(blocks[0], blocks[1])
        self.assertEqual(thrice.stdout, 3 * once.stdout)

    def test_tags_sum_what_was_forgotten(self):
        result = self.run_program("--leak", "--top", "2", "texts", DEBUG="LOG=STDERR SUMMARY")
        sums = collections.defaultdict(lambda: [0, 0])
        for tag, _, _, size, _ in self.forgotten():
            sums[tag][0] += 1
            sums[tag][1] += size
        for tag, (quantity, size) in sums.items():
            self.assertIn(f"     {tag}:       {quantity:8} {size:10}\n", result.stderr)

    def test_free_of_memory_that_no_handle_gave_is_warned_about(self):
        result = self.run_program("--leak", "texts", DEBUG="LOG=STDERR EXCEPTIONS")
        warnings = [line for line in result.stderr.splitlines() if "WARNING" in line]
        free = place(SOURCES / "files.cpp", "qk_mem_free(files.hid, entries);")
        self.assertTrue(warnings)
        for line in warnings:
            self.assertRegex(
                line, r"^   qk_mem_ifree: WARNING:   3 \[[0-9a-f]{16}\] ptr not found at " + free)

    def test_log_and_trace_file_hold_the_same_events(self):
        self.run_program("--leak", "texts", DEBUG="LOG=log DEBUG", OPTIONS="DB=trace HEAPSIZE")
        with open(self.folder / "trace", encoding="utf-8", newline="") as file:
            header, *records = csv.reader(file, delimiter="\t", quoting=csv.QUOTE_NONE)
        self.assertEqual({len(record) for record in records}, {len(header)})
        self.assertEqual(len(header), 15)

        columns = [dict(zip(header, record)) for record in records]
        traced = [column["Address"] for column in columns
                  if column["Type"] in TRACED_TYPES and column["File"].endswith(".cpp")
                  and column["File"] != "qkmem.cpp"]
        logged = [line.split("[")[1].split("]")[0]
                  for line in (self.folder / "log").read_text(encoding="utf-8").splitlines()
                  if line.startswith(tuple(f"   {routine}: " for routine in TRACED_ROUTINES))
                  and "WARNING" not in line]
        self.assertEqual(traced, logged)

        total = 0
        for column in columns:
            total += int(column["Change"])
            self.assertEqual(int(column["Current"]), total)


if __name__ == "__main__":
    main(WordIndex)
