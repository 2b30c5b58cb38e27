"""Runs the blocks of docs/python.md, one after the other, beside a recording."""

import contextlib
import io
import os
import pathlib
import re
import tempfile
import unittest

import recorded

try:
    import numpy
except ImportError:
    numpy = None

PAGE = pathlib.Path(__file__).parents[2] / "docs" / "python.md"


@unittest.skipUnless(numpy, "NumPy is missing: apt install python3-numpy")
class PageTest(unittest.TestCase):
    def test_its_blocks_run(self):
        blocks = re.findall(r"^```python\n(.*?)^```$", PAGE.read_text(), re.MULTILINE | re.DOTALL)
        self.assertGreater(len(blocks), 6)
        names, printed, here = {}, io.StringIO(), os.getcwd()
        with tempfile.TemporaryDirectory() as scratch, contextlib.redirect_stdout(printed):
            recorded.record(os.path.join(scratch, "recordings"))
            os.chdir(scratch)
            try:
                for block in blocks:
                    exec(compile(block, str(PAGE), "exec"), names)
            finally:
                os.chdir(here)
        self.assertEqual(names["ships"], {366053209})
        self.assertEqual(names["image"].shape, (900, 900))
        self.assertEqual(len(names["track"]), 9)
        self.assertIn("3 turns in made/", printed.getvalue())


if __name__ == "__main__":
    unittest.main()
