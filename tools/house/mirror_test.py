#!/usr/bin/env python3
"""mirror.py on planted trees."""
import contextlib
import io
import pathlib
import tempfile
import unittest

import mirror

WHOLE = ("framework/a.cpp", "framework/a.h", "tests/unit/framework/a_test.cpp",
         "include/b.h", "panel/b.cpp", "tests/unit/panel/b_test.cpp",
         "brisq/c.cpp", "brisq/c.h", "tests/unit/brisq/c_test.cpp")

# What is taken away from a whole tree, what is then the complaint.
MISSING = (
    ("framework/a.h", "framework/a.cpp: no header: framework/a.h or include/a.h is missing"),
    ("tests/unit/panel/b_test.cpp",
     "panel/b.cpp: no test: tests/unit/panel/b_test.cpp is missing"),
    ("panel/b.cpp", "include/b.h: no source: framework/b.cpp or panel/b.cpp is missing"),
)


class Mirror(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.root = pathlib.Path(folder.name)
        self.plant(*WHOLE)
        self.excuse("")

    def plant(self, *names):
        for name in names:
            (self.root / name).parent.mkdir(parents=True, exist_ok=True)
            (self.root / name).write_text("", encoding="utf-8")

    def excuse(self, text):
        self.plant(mirror.EXCEPTIONS)
        (self.root / mirror.EXCEPTIONS).write_text(text, encoding="utf-8")

    def judge(self):
        output = io.StringIO()
        with contextlib.redirect_stdout(output):
            status = mirror.main(self.root)
        return status, output.getvalue().strip()

    def test_a_whole_tree_passes(self):
        self.assertEqual((0, "every source has its header and its test"), self.judge())

    def test_each_missing_file_is_named(self):
        for name, complaint in MISSING:
            with self.subTest(name):
                (self.root / name).unlink()
                self.assertEqual((1, complaint), self.judge())
                self.plant(name)

    def test_a_test_of_nothing_is_named(self):
        self.plant("tests/unit/email/gone_test.cpp")
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertIn("tests/unit/email/gone_test.cpp: no subject", output)

    def test_an_exception_with_a_reason_excuses(self):
        (self.root / "framework/a.h").unlink()
        self.excuse("# why\nframework/a.cpp header all of it is private\n")
        self.assertEqual(0, self.judge()[0])

    def test_an_exception_excuses_one_need_only(self):
        self.plant("panel/d.cpp")
        self.excuse("panel/d.cpp header all of it is private\n")
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertTrue(output.startswith("panel/d.cpp: no test"), output)

    def test_an_exception_may_have_wildcards(self):
        self.plant("brisq/d_commands.cpp", "tests/unit/brisq/d_commands_test.cpp",
                   "brisq/e_commands.cpp", "tests/unit/brisq/e_commands_test.cpp")
        self.excuse("brisq/*_commands.cpp header all are declared in one\n")
        self.assertEqual(0, self.judge()[0])
        self.excuse("brisq/e_*.cpp header all are declared in one\n")
        self.assertEqual((1, "brisq/d_commands.cpp: no header: brisq/d_commands.h or "
                             "include/d_commands.h is missing"), self.judge())

    def test_an_exception_that_is_not_needed_fails(self):
        self.excuse("framework/a.cpp header all of it is private\n")
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertIn("framework/a.cpp header excuses nothing any more", output)

    def test_an_exception_without_a_reason_fails(self):
        (self.root / "framework/a.h").unlink()
        self.excuse("framework/a.cpp header\n")
        status, output = self.judge()
        self.assertEqual(1, status)
        self.assertIn("mirror_exceptions.txt:1: PATH NEED REASON", output)


if __name__ == "__main__":
    unittest.main()
