import pathlib
import sys

SOURCES = pathlib.Path(__file__).resolve().parent
sys.path.insert(0, str(SOURCES.parent))
sys.dont_write_bytecode = True

from example_run import Example, adapter_place, main, without_amounts  # noqa: E402

OUTPUT = "Notes\nLetters\n"


class Libxml2(Example):
    def test_leads_by_its_label_to_the_document_that_is_forgotten(self):
        result = self.run_program(PROFILE="SITES")
        self.assertEqual((result.returncode, result.stdout), (0, OUTPUT))
        rows = [row.split()[-5:] for row in without_amounts(result.stderr) if " XM " in row]
        self.assertEqual(rows, [["3", "XM", adapter_place("libxml2", "malloc"), "[reading",
                                 "books]"]], result.stderr)

    def test_holds_nothing_once_documents_are_freed(self):
        result = self.expect_nothing_held("fixed")
        self.assertEqual((result.returncode, result.stdout), (0, OUTPUT))

    def test_frees_only_what_the_handle_knows(self):
        self.expect_no_warning("fixed")


if __name__ == "__main__":
    main(Libxml2)
