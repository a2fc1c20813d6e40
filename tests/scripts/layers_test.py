"""scripts/check-layers on the real tree and on small ones that are wrong.

    layers_test.py SOURCE_TREE
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

TREE = os.path.abspath(sys.argv.pop(1))
SCRIPT = os.path.join(TREE, "scripts", "check-layers")


def check(*words):
    return subprocess.run([SCRIPT, *words], capture_output=True, text=True, check=False)


class Layers(unittest.TestCase):
    def setUp(self):
        self.directory = tempfile.TemporaryDirectory()
        self.tree = self.directory.name
        for line in check(TREE).stdout.splitlines():
            room = re.match(r"(\S+)\s+->", line)
            if room:
                os.makedirs(os.path.join(self.tree, room[1]), exist_ok=True)

    def tearDown(self):
        self.directory.cleanup()

    def write(self, path, *headers):
        with open(os.path.join(self.tree, path), "w", encoding="utf-8") as stream:
            stream.writelines(f'#include "{header}"\n' for header in headers)

    def faults(self):
        return check(self.tree).stderr

    def test_the_tree_is_in_order_and_fits_on_a_screen(self):
        done = check()
        self.assertEqual((0, ""), (done.returncode, done.stderr))
        self.assertLessEqual(len(done.stdout.splitlines()), 24)
        self.assertIn("runtime/client  -> runtime/base, runtime/files, runtime/wire\n", done.stdout)

    def test_an_arrow_that_is_not_allowed_is_named_with_its_file(self):
        self.write("src/engine/Upper.h")
        self.write("runtime/base/Lower.cpp", "Upper.h")
        self.assertIn("check-layers: runtime/base must not include src/engine: "
                      "Lower.cpp includes Upper.h\n", self.faults())
        self.assertEqual(1, check(self.tree).returncode)

    def test_an_arrow_that_is_allowed_is_not(self):
        self.write("runtime/base/Lower.h")
        self.write("src/engine/Upper.cpp", "Lower.h", "Unknown.h")
        self.assertNotIn("Upper", self.faults())

    def test_a_header_and_its_source_count_as_one_in_a_circle(self):
        self.write("runtime/base/One.h", "Two.h")
        self.write("runtime/base/One.cpp", "One.h")
        self.write("runtime/base/Two.h")
        self.assertNotIn("circle: One", self.faults())
        self.write("runtime/base/Two.cpp", "Two.h", "Three.h")
        self.write("runtime/base/Three.h", "One.h")
        self.assertIn("check-layers: circle: One - Three - Two\n", self.faults())

    def test_a_circle_that_is_gone_must_leave_the_list(self):
        self.assertIn("CShellCommand - CShellCommandSet is no circle any more", self.faults())

    def test_a_room_that_nobody_listed_is_named(self):
        os.makedirs(os.path.join(self.tree, "src/cellar"))
        self.write("src/cellar/Wine.cpp")
        self.assertIn("check-layers: src/cellar is a room that is not in the list\n", self.faults())

    def test_a_header_has_a_name_of_its_own(self):
        self.write("runtime/base/One.h")
        self.write("src/model/One.h")
        self.assertIn("check-layers: One.h is in runtime/base and in src/model\n", self.faults())

    def test_wrong_usage(self):
        self.assertEqual(2, check("a", "b").returncode)
        self.assertEqual(2, check("--help").returncode)


unittest.main(verbosity=2)
