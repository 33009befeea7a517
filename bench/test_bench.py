"""python3 -m unittest in this folder."""

import pathlib
import tempfile
import unittest
import xml.etree.ElementTree

import report
from measuring import Failed, Row, compare, race, run
from sealing import seal


class BenchTest(unittest.TestCase):
    def test_each_round_asks_all_and_the_first_is_not_counted(self):
        asked = []

        def runner(name):
            return lambda: asked.append(name) or len(asked)

        samples = race(2, {"a": runner("a"), "b": runner("b")})
        self.assertEqual(asked, ["a", "b", "b", "a", "a", "b"])
        self.assertEqual(samples, {"a": [4, 5], "b": [3, 6]})

    def test_compares_medians_and_spreads_over_the_pairs(self):
        row = compare(1, "x", "s", [1, 2, 9], [2, 2, 3], "peer", limit=1.0)
        self.assertEqual((row.ours, row.peer, row.ratio), (2, 2, 1.0))
        self.assertEqual(row.spread, (0.75, 2.0))  # Of 0.5, 1 and 3.
        self.assertTrue(row.reached)

    def test_limits_are_from_above_or_below_and_of_the_ratio_or_the_value(self):
        for ours, peer, at_least, limit, reached in (
                (3, None, False, 3, True), (3.1, None, False, 3, False), (2, 1, False, 1.5, False),
                (2, 1, True, 1.5, True), (1, 1, True, 1.5, False), (1, None, False, 0, False),
                (1, 1, False, None, None)):
            row = Row(1, "x", "", ours, peer, limit=limit, at_least=at_least)
            self.assertIs(row.reached, reached, row)

    def test_reports_say_what_was_missed(self):
        rows = [Row(1, "a < b", "s", 2.0, 1.0, "peer", (1.9, 2.1), limit=1.5),
                Row(2, "rate", "1/s", 40, 100, "peer", limit=0.33, at_least=True),
                Row(3, "files", "", 0, limit=0)]
        lines = report.table(rows).splitlines()
        self.assertIn("| 2.00  | 1.90 to 2.10 | ≤ 1.50 | MISSED", lines[2])
        self.assertIn("| 0.40  |              | ≥ 0.33 | reached", lines[3])
        bars = [element.get("fill") for element in xml.etree.ElementTree.fromstring(
            report.plot(rows)).iter("{http://www.w3.org/2000/svg}rect")]
        self.assertEqual(bars[1:], ["#c8553d", "#4a7fb5"])

    def test_a_program_that_fails_is_no_sample(self):
        with tempfile.TemporaryDirectory() as folder:
            with self.assertRaisesRegex(Failed, "status 3: oh"):
                run(("sh", "-c", "echo oh; exit 3"), pathlib.Path(folder))

    def test_seals_as_the_library_does(self):
        self.assertEqual(seal("cmd=gettoken"), "7D4470DA8E2DCE6836729BBA61EC3DBB")
