#!/usr/bin/env python3
"""Tests bench/run: its arithmetic, and that every kind of row still runs. Speed is not judged.

usage: run_test.py [BUILD]   BUILD: folder with the built programs; without one none is run
"""

import os
import subprocess
import sys
import tempfile
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)

from tool import data, plot, table  # noqa: E402
from tool.measure import Failed, Pairs, numbers, pair, pairs_of, seconds  # noqa: E402

BUILD = ""
# Of every kind: whole processes, figures of drivers, the panel. The others need more packages.
ROWS = (3, 4, 5, 6, 7, 12, 13, 14)


def result(value, goal=1.0, stretch=False):
    return table.Result(1, "work", "1 ms", "peer: 2 ms", value, goal, stretch=stretch)


class PairsTest(unittest.TestCase):
    def test_ratio_is_the_median_of_the_pairs(self):
        pairs = Pairs([1, 90, 3], [2, 100, 1])
        self.assertEqual(0.9, pairs.ratio)
        self.assertEqual((3, 2), (pairs.our_median, pairs.peer_median))

    def test_one_disturbed_pair_does_not_count(self):
        self.assertEqual(2, Pairs([2, 2, 500], [1, 1, 1]).ratio)

    def test_sides_take_turns(self):
        calls = []
        pairs = pair(2, lambda at: calls.append(("ours", at)) or 1,
                     lambda at: calls.append(("peer", at)) or 2)
        self.assertEqual([("ours", 0), ("peer", 0), ("ours", 1), ("peer", 1)], calls)
        self.assertEqual(([1, 1], [2, 2]), (pairs.ours, pairs.peer))

    def test_output_of_a_driver_is_read(self):
        self.assertEqual([[1.5, 2], [3]], numbers("1.5 2\n3\n"))
        self.assertEqual(Pairs([2, 6], [4, 8]), pairs_of("1 2\n3 4\n", 2))

    def test_a_command_that_fails_is_an_error(self):
        self.assertGreater(seconds(["true"], repeat=2), 0)
        for command in (["false"], ["no-such-program"]):
            with self.assertRaises(Failed):
                seconds(command)


class TableTest(unittest.TestCase):
    def test_verdicts(self):
        for value, stretch, expected in ((1.0, False, "met"), (1.01, False, "**missed**"),
                                         (0.5, True, "stretch, met"),
                                         (2, True, "stretch, missed")):
            self.assertEqual(expected, result(value, stretch=stretch).verdict, (value, stretch))

    def test_only_a_missed_stretch_is_forgiven(self):
        self.assertTrue(table.all_met([result(1), result(9, stretch=True)]))
        self.assertFalse(table.all_met([result(1), result(1.1)]))

    def test_what_could_not_be_measured_is_missed(self):
        self.assertFalse(table.all_met([table.unmeasured(10)]))
        self.assertIn("could not be measured", table.render([table.unmeasured(10)]))

    def test_figures_have_a_fitting_unit(self):
        for given, expected in ((2.5, "2.50 s"), (0.0123, "12.3 ms"), (456e-6, "456 us"),
                                (7e-9, "7.00 ns")):
            self.assertEqual(expected, table.duration(given))

    def test_columns_are_aligned(self):
        lines = table.render([result(0.5), result(123.4)]).splitlines()
        self.assertEqual(4, len(lines))
        self.assertEqual(1, len({len(line) for line in lines}))
        self.assertIn("0.50 x", lines[2])

    def test_document_keeps_what_is_around_the_table(self):
        text = f"before\n{table.BEGIN}\nold\n{table.END}\nafter\n"
        self.assertEqual(f"before\n{table.BEGIN}\nnew\n{table.END}\nafter\n",
                         table.replace_in(text, "new"))
        with self.assertRaises(ValueError):
            table.replace_in("no markers", "new")


class DataTest(unittest.TestCase):
    def test_lines_are_like_those_of_installations(self):
        for number in (0, 999_999):
            self.assertEqual(175, len(data.line(number)))
            self.assertEqual(data.name(number), data.line(number).split(":")[0])
        self.assertEqual("u0001234@d234.test", data.name(1234))

    def test_quota_lists_every_mailbox_once_and_not_in_order(self):
        with tempfile.TemporaryDirectory() as folder:
            with open(data.write_quota(f"{folder}/quota", 1000), encoding="ascii") as file:
                names = [line.split()[0] for line in file if "STORAGE" in line]
        self.assertEqual({data.name(at) for at in range(1000)}, set(names))
        self.assertNotEqual(sorted(names), names)


class PlotTest(unittest.TestCase):
    def test_every_size_has_its_points(self):
        svg = plot.draw([(100, (0.02, 0.001)), (1000, (0.03, 0.002)), (10000, (0.2, 0.02))])
        self.assertEqual(6, svg.count("<circle"))
        self.assertTrue(svg.startswith("<svg") and svg.endswith("</svg>\n"))


class RunTest(unittest.TestCase):
    def test_every_kind_of_row_runs(self):
        if not BUILD or os.geteuid() != 0:
            self.skipTest("needs the built programs and root")
        rows = [word for row in ROWS for word in ("--row", str(row))]
        done = subprocess.run([f"{HERE}/run", "--build", BUILD, "--lines", "1000", "--trial", *rows],
                              capture_output=True, text=True, timeout=100)
        self.assertEqual(0, done.returncode, done.stderr)
        for row in ROWS:
            self.assertRegex(done.stdout, rf"(?m)^\| {row} ")


if __name__ == "__main__":
    if len(sys.argv) > 1:
        BUILD = sys.argv.pop()
    unittest.main()
