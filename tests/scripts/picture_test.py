#!/usr/bin/env python3
"""Tests scripts/make-picture: a picture of this build's session, and the one that README.md shows.

Usage: picture_test.py SOURCE_DIR BINARY_DIR
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest
import xml.etree.ElementTree as xml

SOURCE_DIR, BINARY_DIR = sys.argv.pop(1), sys.argv.pop(1)
COMMITTED = os.path.join(SOURCE_DIR, "docs/images/session.svg")
SVG = "{http://www.w3.org/2000/svg}"


def make(build, output):
    return subprocess.run([os.path.join(SOURCE_DIR, "scripts/make-picture"), "--build", build,
                           "--output", output],
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, check=False)


def rows_of(picture):
    """The rows, top to bottom, as a reader sees them."""
    rows = {}
    for text in xml.parse(picture).getroot().iter(SVG + "text"):
        rows.setdefault(float(text.get("y")), []).append((float(text.get("x")), text.text))
    return [" ".join(part for _, part in sorted(parts)) for _, parts in sorted(rows.items())]


def without_chance(rows):
    """Without what differs from run to run: times, addresses, build, directory, machine, and in what
    step of a connection the silence is noticed."""
    for pattern, word in ((r"\(\d+ms\)", "(ms)"), (r"127\.\d+\.\d+\.\d+:\d+", "ADDRESS"),
                          (r"Version .*", "VERSION"), (r"(did not answer in time).*", r"\1"),
                          (r"/\S+(?=/(nodes|kelsh)/)", "DIR"),
                          (r"\[[^]]+\]\$", "[master]$")):
        rows = [re.sub(pattern, word, row) for row in rows]
    return rows


class Picture(unittest.TestCase):
    def test_shows_a_success_a_failure_and_a_time_out(self):
        with tempfile.TemporaryDirectory() as directory:
            output = os.path.join(directory, "session.svg")
            run = make(BINARY_DIR, output)
            self.assertEqual((run.returncode, run.stderr), (0, ""))
            rows = without_chance(rows_of(output))
        self.assertIn("[master]$ lab/ready -g all -t 2000", rows)
        at = rows.index("[node_0002] (ms)")
        self.assertEqual(rows[at + 1], "ready")
        self.assertIn("FAILURE", rows[rows.index("[node_0003] (ms)") + 1])
        self.assertIn("TIMED_OUT", rows[rows.index("[node_0005] (ms)") + 1])
        # README.md must not show a session that this shell no longer has.
        self.assertEqual(without_chance(rows_of(COMMITTED)), rows)

    def test_without_programs_says_so_and_writes_nothing(self):
        with tempfile.TemporaryDirectory() as directory:
            output = os.path.join(directory, "session.svg")
            run = make(directory, output)
            self.assertEqual(run.returncode, 1)
            self.assertIn("holds no kelnode", run.stderr)
            self.assertEqual(os.listdir(directory), [])

    def test_of_the_readme_is_small_and_fits_its_column(self):
        self.assertLess(os.path.getsize(COMMITTED), 60 * 1024)
        self.assertLessEqual(int(xml.parse(COMMITTED).getroot().get("width")), 900)


if __name__ == "__main__":
    unittest.main()
